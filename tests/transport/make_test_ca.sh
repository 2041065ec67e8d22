#!/usr/bin/env bash
# Makes the trust anchors of the TLS tests in DIR: ca.pem (the test CA), other-ca.pem (a CA nobody
# trusts), and server.pem / server.key for "localhost" and 127.0.0.1, signed by the test CA.
#   tests/transport/make_test_ca.sh DIR
set -euo pipefail
dir=$1
mkdir -p "$dir"
cd "$dir"
for ca in ca other-ca; do
  openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj "/CN=QZ Test $ca" -keyout "$ca.key" -out "$ca.pem" \
    -addext basicConstraints=critical,CA:TRUE -addext keyUsage=critical,keyCertSign,cRLSign 2>/dev/null
done
openssl req -newkey rsa:2048 -nodes -subj "/CN=localhost" -keyout server.key -out server.csr 2>/dev/null
printf 'subjectAltName=DNS:localhost,IP:127.0.0.1\nextendedKeyUsage=serverAuth\nbasicConstraints=CA:FALSE\n' >server.ext
openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 2 -extfile server.ext \
  -out server.pem 2>/dev/null
