"""nginx on the loopback, and a listener that shows what a client sends."""

import shutil
import socket
import subprocess
import threading
import time
from pathlib import Path

SMALL_BODY = "Hello, world!"
FILE_BYTES = 1 << 30
NGINX = shutil.which("nginx") or "/usr/sbin/nginx"  # which is in the path of root alone

CONFIGURATION = """
daemon off;
worker_processes 1;
pid {folder}/nginx.pid;
{user}
events {{ worker_connections 1024; }}
http {{
  access_log off;
  sendfile on;
  keepalive_requests 1000000000;
  keepalive_timeout 600s;
  client_max_body_size 0;
  client_body_temp_path {folder}/bodies;
  proxy_temp_path {folder}/proxy;
  fastcgi_temp_path {folder}/fastcgi;
  uwsgi_temp_path {folder}/uwsgi;
  scgi_temp_path {folder}/scgi;
  # Nothing by which an answer could be kept: each request is to reach the server.
  etag off;
  add_header Last-Modified "";
  default_type application/octet-stream;
  ssl_certificate {folder}/certificate.pem;
  ssl_certificate_key {folder}/key.pem;
  server {{
    listen 127.0.0.1:{port};
    listen 127.0.0.1:{secure_port} ssl http2;
    root {folder}/served;
    location = /small {{ return 200 "{body}"; }}
    # `return` would answer before the body has come, which not every client can take.
    location = /put {{
      proxy_pass http://127.0.0.1:{port}/small;
      proxy_method GET;
      proxy_pass_request_body off;
      proxy_set_header Content-Length "";
    }}
    location = /orders.json {{ default_type application/json; }}
  }}
}}
"""


def free_port() -> int:
    with socket.create_server(("127.0.0.1", 0)) as listener:
        return listener.getsockname()[1]


def make_certificate(folder: Path) -> None:
    """One that signs itself, good for two days."""
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
         "-days", "2", "-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1",
         "-keyout", folder / "key.pem", "-out", folder / "certificate.pem"],
        check=True, stderr=subprocess.DEVNULL)


def write_file(path: Path, size: int) -> None:
    """Bytes that take room, not a hole: a hole is read in another way than a file."""
    block = bytes(range(256)) * 4096
    with path.open("wb") as file:
        for _ in range(size // len(block)):
            file.write(block)


class Server:
    """nginx with one worker on one core, until the `with` ends. Serves `document` as /orders.json,
    a file of 1 GiB as /file, and takes whatever is PUT to /put, which it reads whole and drops."""

    def __init__(self, folder: Path, core: int, document: bytes, is_root: bool) -> None:
        self.folder = folder
        self.core = core
        self.port = free_port()
        self.secure_port = free_port()
        self.file = folder / "served" / "file"
        self.authority = folder / "certificate.pem"
        self.file.parent.mkdir()
        (folder / "served" / "orders.json").write_bytes(document)
        write_file(self.file, FILE_BYTES)
        make_certificate(folder)
        (folder / "nginx.conf").write_text(CONFIGURATION.format(
            folder=folder, port=self.port, secure_port=self.secure_port, body=SMALL_BODY,
            user="user root;" if is_root else ""))

    def __enter__(self) -> "Server":
        self.process = subprocess.Popen(
            ["taskset", "--cpu-list", str(self.core), NGINX, "-p", self.folder,
             "-c", self.folder / "nginx.conf", "-e", self.folder / "error.log"])
        try:
            self.wait_until_ready()
        except BaseException:
            self.stop()
            raise
        return self

    def __exit__(self, *_: object) -> None:
        self.stop()

    def stop(self) -> None:
        self.process.terminate()
        self.process.wait()

    def wait_until_ready(self) -> None:
        for _ in range(500):
            if self.process.poll() is not None:
                raise RuntimeError("nginx ended: " + (self.folder / "error.log").read_text())
            try:
                socket.create_connection(("127.0.0.1", self.port)).close()
                return
            except ConnectionRefusedError:
                time.sleep(0.01)
        raise RuntimeError("nginx does not answer")

    def url(self, path: str, secure: bool = False) -> str:
        return f"https://127.0.0.1:{self.secure_port}{path}" if secure else f"http://127.0.0.1:{self.port}{path}"


class HeaderListener:
    """Answers one request with `body` and keeps its header lines."""

    def __init__(self, body: bytes) -> None:
        self.body = body
        self.lines: list[str] = []
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.listener.settimeout(30)
        self.url = f"http://127.0.0.1:{self.listener.getsockname()[1]}/"
        self.thread = threading.Thread(target=self.serve)

    def __enter__(self) -> "HeaderListener":
        self.thread.start()
        return self

    def __exit__(self, *_: object) -> None:
        self.thread.join()
        self.listener.close()

    def serve(self) -> None:
        connection, _ = self.listener.accept()
        with connection, connection.makefile("rb") as stream:
            stream.readline()  # GET / HTTP/1.1
            while line := stream.readline().decode().strip():
                self.lines.append(line)
            stream.read(next((int(line.split(":")[1]) for line in self.lines
                              if line.lower().startswith("content-length:")), 0))
            connection.sendall(b"HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: %d\r\n\r\n%b"
                               % (len(self.body), self.body))
