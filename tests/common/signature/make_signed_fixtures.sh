#!/bin/sh
# Makes the signed test files of the signature check from one unsigned program, with openssl and
# osslsigncode:
#   testca.cer      the trusted test CA (DER), which the test adds to the machine's Root store
#   orvane.exe      signed by "Orvane Lab" under the test CA
#   other.exe       signed by "Other Publisher" under the test CA
#   untrusted.exe   signed by "Orvane Lab" under a second CA that is never trusted
#   unsigned.exe    the program as it is
#   tampered.exe    orvane.exe with one byte of its code changed after signing
# Usage: make_signed_fixtures.sh <program.exe> <output folder>
set -eu
src=$1
out=$2
work=$out/work
rm -rf "$work"
mkdir -p "$work"

cat >"$work/ca.ext" <<'EXT'
basicConstraints=critical,CA:TRUE
keyUsage=critical,keyCertSign,cRLSign
subjectKeyIdentifier=hash
EXT
cat >"$work/leaf.ext" <<'EXT'
basicConstraints=critical,CA:FALSE
keyUsage=critical,digitalSignature
extendedKeyUsage=codeSigning
subjectKeyIdentifier=hash
authorityKeyIdentifier=keyid
EXT

# make_ca <name> <common name>
make_ca() {
    openssl req -new -newkey rsa:2048 -nodes -keyout "$work/$1.key" -subj "/CN=$2" -out "$work/$1.csr" 2>/dev/null
    openssl x509 -req -in "$work/$1.csr" -signkey "$work/$1.key" -days 3650 -extfile "$work/ca.ext" \
        -out "$work/$1.crt" 2>/dev/null
}
# make_leaf <name> <common name> <CA name>: the leaf's certificate followed by its CA's, for signing.
make_leaf() {
    openssl req -new -newkey rsa:2048 -nodes -keyout "$work/$1.key" -subj "/CN=$2/O=$2" -out "$work/$1.csr" 2>/dev/null
    openssl x509 -req -in "$work/$1.csr" -CA "$work/$3.crt" -CAkey "$work/$3.key" -set_serial "0x$(openssl rand -hex 8)" \
        -days 3650 -extfile "$work/leaf.ext" -out "$work/$1.crt" 2>/dev/null
    cat "$work/$1.crt" "$work/$3.crt" >"$work/$1.chain.pem"
}
# sign <leaf name> <output>
sign() {
    rm -f "$2"
    osslsigncode sign -certs "$work/$1.chain.pem" -key "$work/$1.key" -h sha256 -n "qz signature test" \
        -in "$src" -out "$2" >/dev/null
}

make_ca testca "QZ Signature Test CA"
make_ca otherca "QZ Untrusted Test CA"
make_leaf orvane "Orvane Lab" testca
make_leaf other "Other Publisher" testca
make_leaf orvane2 "Orvane Lab" otherca

openssl x509 -in "$work/testca.crt" -outform DER -out "$out/testca.cer"
sign orvane "$out/orvane.exe"
sign other "$out/other.exe"
sign orvane2 "$out/untrusted.exe"
cp "$src" "$out/unsigned.exe"

# One byte of the code section (past the headers, which take the first 1 KiB) changed.
cp "$out/orvane.exe" "$out/tampered.exe"
offset=4096
byte=$(od -An -tu1 -j $offset -N1 "$out/tampered.exe" | tr -d ' ')
printf "$(printf '\\%03o' $(((byte + 1) % 256)))" | dd of="$out/tampered.exe" bs=1 seek=$offset conv=notrunc 2>/dev/null
cmp -s "$out/orvane.exe" "$out/tampered.exe" && { echo "tampered.exe is unchanged" >&2; exit 1; }
rm -rf "$work"
