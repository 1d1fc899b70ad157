"""The product's web service on this machine: HTTPS that keeps every request and answers as scripted."""

import http.server
import ssl
import threading

from booted.machine import run

# Where it is reached besides the loopback, once an interface has it.
ADDRESS = "198.51.100.2"


class WebService:
    def __init__(self, folder):
        """Makes its certificate, its own trust anchor, in the folder."""
        self.anchor = folder / "anchor.pem"
        run("openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "2",
            "-subj", "/CN=Web service", "-addext", f"subjectAltName=DNS:localhost,IP:127.0.0.1,IP:{ADDRESS}",
            "-keyout", folder / "key.pem", "-out", self.anchor)
        self.requests = []  # host, target and content of each
        self.answers = {}  # by path, without the query
        self.answering = threading.Event()
        self.answering.set()
        service = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                content = self.rfile.read(int(self.headers.get("Content-Length", 0))).decode()
                service.requests.append(f"{self.headers['Host']}{self.path} {content}")
                service.answering.wait()
                body = service.answers.get(self.path.split("?")[0], "{}").encode()
                self.send_response(200)
                self.send_header("Content-Length", str(len(body)))
                self.end_headers()
                self.wfile.write(body)

            do_POST = do_GET

            def log_message(self, *_):
                pass

        server = http.server.ThreadingHTTPServer(("", 0), Handler)
        server.daemon_threads = True
        server.handle_error = lambda *_: None  # a client that went away
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(self.anchor, folder / "key.pem")
        server.socket = context.wrap_socket(server.socket, server_side=True)
        self.port = server.server_port
        threading.Thread(target=server.serve_forever, daemon=True).start()

    def asked(self, text):
        """Whether a request has come whose host, target and content hold this text."""
        return any(text in request for request in self.requests)

    def stall(self):
        """Answers no request before `go_on`."""
        self.answering.clear()

    def go_on(self):
        self.answering.set()
