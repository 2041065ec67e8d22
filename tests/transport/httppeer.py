#!/usr/bin/env python3
"""A small HTTP server for the transfer tests, on 127.0.0.1 and a free port (printed first).

  httppeer.py DIR   serves the files of DIR, plus:
  /cut/N            announces N bytes, sends a tenth of them and closes the connection
  /stall            announces 1000 bytes, sends 10 and then nothing for a minute
Any other missing path answers 404.
"""
import http.server
import os
import sys
import time


class Handler(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *args):
        pass

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
        super().do_GET()


def main():
    os.chdir(sys.argv[1])
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    server.daemon_threads = True
    print(server.server_address[1], flush=True)
    server.serve_forever()


if __name__ == "__main__":
    main()
