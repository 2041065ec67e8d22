#!/usr/bin/env python3
"""A small HTTP server for the transfer tests, on 127.0.0.1 and a free port (printed first).

  httppeer.py DIR [CERT KEY]   serves the files of DIR (over TLS with CERT and KEY), plus:
  /cut/N            announces N bytes, sends a tenth of them and closes the connection
  /stall            announces 1000 bytes, sends 10 and then nothing for a minute
  /cutfile/NAME     announces the whole file NAME, sends its first half and closes the connection
  /norange/NAME     sends the whole file NAME, whatever range was asked for
A file of DIR asked for with "Range: bytes=N-" answers 206 with the rest. Any other path answers 404.
POST /api/v1.0/SrvRi.OP plays an administration server: Echo answers {"PxgRetVal": {"params": the
arguments}} with the caller's X-QZ-Component header added as "component"; Nothing answers {}; Denied
403; Old the error of a server without the operation; Broken a body that is no JSON; Huge 17 MiB;
Redirect a redirect to another host.
"""
import http.server
import json
import os
import sys
import time


class Handler(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *args):
        pass

    def reply(self, status, body, headers=()):
        data = body if isinstance(body, bytes) else json.dumps(body).encode()
        self.send_response(status)
        for name, value in headers:
            self.send_header(name, value)
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def do_POST(self):
        args = json.loads(self.rfile.read(int(self.headers.get("Content-Length", "0"))) or b"{}")
        op = self.path.rsplit(".", 1)[-1]
        if op == "Echo":
            args["component"] = {"str": self.headers.get("X-QZ-Component", "")}
            self.reply(200, {"PxgRetVal": {"params": args}})
        elif op == "Nothing":
            self.reply(200, {})
        elif op == "Denied":
            self.reply(403, {"PxgError": {"module": "QZSTD", "code": 5, "message": "no"}})
        elif op == "Old":
            self.reply(500, {"PxgError": {"module": "QZSTD", "code": 1194, "message": "no such method"}})
        elif op == "Broken":
            self.reply(200, b"<html>not json</html>")
        elif op == "Huge":
            self.reply(200, b" " * (17 * 1024 * 1024))
        elif op == "Redirect":
            self.reply(302, b"", [("Location", "http://example.invalid/api")])
        else:
            self.reply(404, b"")

    def do_GET(self):
        if self.path.startswith("/cut/"):
            size = int(self.path[5:])
            self.send_response(200)
            self.send_header("Content-Length", str(size))
            self.end_headers()
            self.wfile.write(b"x" * (size // 10))
            self.wfile.flush()
            self.close_connection = True
            return
        if self.path == "/stall":
            self.send_response(200)
            self.send_header("Content-Length", "1000")
            self.end_headers()
            self.wfile.write(b"y" * 10)
            self.wfile.flush()
            time.sleep(60)
            return
        name = self.path.lstrip("/")
        for prefix in ("cutfile/", "norange/"):
            if name.startswith(prefix):
                name = name[len(prefix):]
        if not os.path.isfile(name):
            self.send_error(404)
            return
        with open(name, "rb") as f:
            data = f.read()
        start = 0
        ranged = self.headers.get("Range", "")
        if ranged.startswith("bytes=") and not self.path.startswith("/norange/"):
            start = int(ranged[6:].split("-")[0])
        if start >= len(data) and start > 0:
            self.send_response(416)
            self.send_header("Content-Range", "bytes */%d" % len(data))
            self.send_header("Content-Length", "0")
            self.end_headers()
            return
        self.send_response(206 if start else 200)
        if start:
            self.send_header("Content-Range", "bytes %d-%d/%d" % (start, len(data) - 1, len(data)))
        self.send_header("Content-Length", str(len(data) - start))
        self.end_headers()
        if self.path.startswith("/cutfile/"):
            self.wfile.write(data[: len(data) // 2])
            self.wfile.flush()
            self.close_connection = True
            return
        self.wfile.write(data[start:])


def main():
    sys.argv[2:] = [os.path.abspath(a) for a in sys.argv[2:]]
    os.chdir(sys.argv[1])
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    server.daemon_threads = True
    if len(sys.argv) > 3:
        import ssl
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(os.path.abspath(sys.argv[2]), os.path.abspath(sys.argv[3]))
        server.socket = context.wrap_socket(server.socket, server_side=True)
    print(server.server_address[1], flush=True)
    server.serve_forever()


if __name__ == "__main__":
    main()
