#!/usr/bin/env python3
"""An HTTPS server whose files a test changes while it runs.

    feed_server.py ROOT PORT CERTIFICATE LOG

ROOT/path is the body of what is asked for at /path; without the file the answer is 404. Files beside
it change the answer:

    path.status     this status code instead of 200
    path.redirect   a Location; the status is 302 unless given
    path.cut        the connection ends after so many bytes, though more were promised
    path.chunked    no length is told
    path.held       only the first half of the body comes, as long as this file is there

CERTIFICATE holds the certificate, its key behind it. LOG gets the line "listening", then a line
for each request when its answer is chosen: path, status, the client's name, and what it wants of
caches.
"""

import http.server
import pathlib
import socketserver
import ssl
import sys
import time


class Answer(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    timeout = 60  # of a connection on which nothing more is asked

    def do_GET(self):
        path = self.path.partition("?")[0]
        file = (self.server.root / path.lstrip("/")).resolve()
        if not file.is_relative_to(self.server.root):
            file = self.server.root
        self.beside = lambda name: file.with_name(f"{file.name}.{name}")
        body = file.read_bytes() if file.is_file() else None
        location = self.control("redirect")
        default = 302 if location else 404 if body is None else 200
        self.answer(int(self.control("status") or default), location, body or b"")

    def control(self, name):
        file = self.beside(name)
        return file.read_text().strip() if file.exists() else None

    def note(self, status):
        wants = (self.headers.get(name, "") for name in ("User-Agent", "Cache-Control"))
        self.server.note(" ".join((self.path, str(status), *wants)).rstrip())

    def answer(self, status, location, body):
        cut = self.control("cut")
        chunked = self.beside("chunked").exists()
        self.note(status)
        self.send_response(status)
        if location:
            self.send_header("Location", location)
        if chunked:
            self.send_header("Transfer-Encoding", "chunked")
        else:
            self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        if cut is not None:
            body = body[:int(cut)]
            self.close_connection = True
        if chunked:
            for start in range(0, len(body), 1000):
                piece = body[start:start + 1000]
                self.wfile.write(b"%x\r\n%s\r\n" % (len(piece), piece))
            if cut is None:
                self.wfile.write(b"0\r\n\r\n")
        else:
            half = len(body) // 2
            self.wfile.write(body[:half])
            while self.beside("held").exists():
                time.sleep(0.02)
            self.wfile.write(body[half:])

    def log_message(self, *arguments):
        pass


class Server(socketserver.ThreadingMixIn, http.server.HTTPServer):
    daemon_threads = True

    def __init__(self, root, port, certificate, log):
        self.root = root
        self.log = log
        super().__init__(("127.0.0.1", port), Answer)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(certificate)
        # The handshake is left to the thread of the connection: no client holds up the others.
        self.socket = context.wrap_socket(self.socket, server_side=True,
                                          do_handshake_on_connect=False)

    def note(self, line):
        with open(self.log, "a", encoding="utf-8") as log:
            log.write(line + "\n")

    def handle_error(self, request, client_address):
        # Clients that don't trust the certificate, or that have heard enough.
        if not isinstance(sys.exc_info()[1], OSError):
            super().handle_error(request, client_address)


def main():
    root, port, certificate, log = sys.argv[1:]
    server = Server(pathlib.Path(root).resolve(), int(port), certificate, log)
    server.note("listening")
    server.serve_forever()


if __name__ == "__main__":
    main()
