#!/usr/bin/env python3
"""A test administration server: the SrvRi operations in typed JSON over HTTP(S) on 127.0.0.1.

  adminserver.py DIR [CERT KEY]     prints its port first, then serves until it is killed

Every call takes the next answer of DIR/script (comma-separated; the last one repeats, and a new
script starts again from its first answer):
  0, 1, 2, ...  ShouldForceReboot2 answers the number; the other operations succeed with {}
  1194          the error of a server without the operation
  403           access denied
  broken        status 200 with a body that is no JSON
  wrongtype     ShouldForceReboot2 answers a string
  slow          waits 3 seconds, then answers 0
  drop          closes the connection without an answer
Each call is appended to DIR/calls.log as one JSON line: the operation, the answer it got, the
arguments, and the X-QZ-* headers.
"""
import http.server
import json
import os
import sys
import threading
import time

lock = threading.Lock()
state = {"script": None, "next": 0}


def next_answer(folder):
    with lock:
        try:
            with open(os.path.join(folder, "script")) as f:
                script = [a.strip() for a in f.read().split(",") if a.strip()] or ["0"]
        except FileNotFoundError:
            script = ["0"]
        if script != state["script"]:
            state["script"], state["next"] = script, 0
        answer = script[min(state["next"], len(script) - 1)]
        state["next"] += 1
        return answer


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *args):
        pass

    def reply(self, status, body):
        data = body if isinstance(body, bytes) else json.dumps(body).encode()
        self.send_response(status)
        self.send_header("Content-Type", "application/json; charset=utf-8")
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def do_POST(self):
        folder = self.server.folder
        body = self.rfile.read(int(self.headers.get("Content-Length", "0")))
        op = self.path.rsplit(".", 1)[-1] if self.path.startswith("/api/v1.0/SrvRi.") else None
        answer = next_answer(folder)
        headers = {k: v for k, v in self.headers.items() if k.lower().startswith("x-qz-")}
        try:
            args = json.loads(body or b"{}")
        except ValueError:
            args = None
        with lock, open(os.path.join(folder, "calls.log"), "a") as log:
            log.write(json.dumps({"op": op, "answer": answer, "args": args, "headers": headers}) + "\n")
        if op is None:
            self.reply(500, {"PxgError": {"module": "QZSTD", "code": 1194, "message": "Function is not implemented"}})
        elif answer == "drop":
            self.close_connection = True
            self.connection.close()
        elif answer == "1194":
            self.reply(500, {"PxgError": {"module": "QZSTD", "code": 1194, "message": "Function is not implemented"}})
        elif answer == "403":
            self.reply(403, {"PxgError": {"module": "QZSTD", "code": 5, "message": "Access denied"}})
        elif answer == "broken":
            self.reply(200, b"<html>busy</html>")
        elif op != "ShouldForceReboot2":
            self.reply(200, {})
        elif answer == "wrongtype":
            self.reply(200, {"PxgRetVal": {"str": "1"}})
        else:
            if answer == "slow":
                time.sleep(3)
                answer = "0"
            self.reply(200, {"PxgRetVal": {"int": int(answer)}})


def main():
    folder = os.path.abspath(sys.argv[1])
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    server.daemon_threads = True
    server.folder = folder
    if len(sys.argv) > 3:
        import ssl
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(os.path.abspath(sys.argv[2]), os.path.abspath(sys.argv[3]))
        server.socket = context.wrap_socket(server.socket, server_side=True)
    print(server.server_address[1], flush=True)
    server.serve_forever()


if __name__ == "__main__":
    main()
