"""A management server for tests that says whatever a test wants, on the loopback interface."""

import socket
import ssl
import struct
import subprocess
import threading

from device import PATIENCE


def make_certificate(directory, subject="/CN=somebody.example"):
    """A self-signed certificate with its key, as one file."""
    path = directory / "server.pem"
    command = ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes"]
    command += ["-subj", subject, "-keyout", "-", "-out", "-"]
    path.write_bytes(subprocess.run(command, check=True, capture_output=True).stdout)
    return path


def ok(body):
    return b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\nConnection: close\r\n\r\n%s" % (len(body), body)


class ReplyServer:
    """Gives one answer per connection, the last one again and again. An answer is bytes, sent as they are, or a function
    that is given the connection after the request was read."""

    def __init__(self, certificate, *answers, protocols=()):
        self.requests = []
        self.agreed = []  # with each connection, which of `protocols` (ALPN) is spoken
        self._answers = answers
        self._context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self._context.load_cert_chain(certificate)
        if protocols:
            self._context.set_alpn_protocols(protocols)
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.address = "127.0.0.1:%d" % self._listener.getsockname()[1]
        self._thread = threading.Thread(target=self._serve, daemon=True)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._listener.shutdown(socket.SHUT_RDWR)
        self._thread.join(PATIENCE)
        assert not self._thread.is_alive()
        self._listener.close()

    def _serve(self):
        turn = 0
        while True:
            try:
                plain, _ = self._listener.accept()
            except OSError:
                return
            answer = self._answers[min(turn, len(self._answers) - 1)]
            turn += 1
            try:
                self._converse(plain, answer)
            except (OSError, ssl.SSLError):
                pass  # the tool is free to hang up

    def _converse(self, plain, answer):
        with plain:
            plain.settimeout(PATIENCE)
            with self._context.wrap_socket(plain, server_side=True) as connection:
                self.agreed.append(connection.selected_alpn_protocol())
                self.requests.append(self._request(connection))
                if callable(answer):
                    answer(connection)
                else:
                    connection.sendall(answer)

    @staticmethod
    def _request(connection):
        request = b""
        while not request.endswith(b"\r\n\r\n"):
            piece = connection.recv(4096)
            if not piece:
                break
            request += piece
        return request


def reset(connection):
    """Ends a connection the hard way."""
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()
