"""The servers that Tarn is compared with. Each is a process of its own on a free port, in a temporary folder."""
import contextlib
import os

from harness.processes import output_of, serving

_NGINX = """
daemon off;
worker_processes auto;
pid {folder}/nginx.pid;
error_log stderr;
events {{ worker_connections 1024; }}
http {{
    access_log off;
    sendfile on;
    tcp_nodelay on;
    keepalive_requests 1000000000;
    client_body_temp_path {folder}/body;
    proxy_temp_path {folder}/proxy;
    fastcgi_temp_path {folder}/fastcgi;
    uwsgi_temp_path {folder}/uwsgi;
    scgi_temp_path {folder}/scgi;
    default_type application/xml;
    server {{
        listen 127.0.0.1:{port};
        root {folder}/files;
        {locations}
    }}
}}
"""


class Nginx:
    def __init__(self, process, url, files):
        self.process = process
        self.url = url
        self.files = files

    def store(self, name, content):
        with open(os.path.join(self.files, name), "wb") as file:
            file.write(content)

    def processor_seconds(self):
        return self.process.processor_seconds()


@contextlib.contextmanager
def nginx(folder, answers=None):
    """@param answers  fixed replies by path prefix; everything else is a file of its folder"""
    home = os.path.join(folder, "nginx")
    os.makedirs(os.path.join(home, "files"), mode=0o755)
    if os.getuid() == 0:  # the workers then run as somebody else
        os.chmod(folder, 0o755)
    locations = "\n".join(f"location {path} {{ return 200 '{text}'; }}" for path, text in (answers or {}).items())
    configuration = os.path.join(home, "nginx.conf")

    def command(port):
        with open(configuration, "w", encoding="utf-8") as file:
            file.write(_NGINX.format(folder=home, port=port, locations=locations))
        return "/usr/sbin/nginx", "-e", "stderr", "-p", home, "-c", configuration

    with serving(command) as (process, port):
        yield Nginx(process, f"http://127.0.0.1:{port}", os.path.join(home, "files"))


class RcloneServer:
    """What `rclone serve` offers over a folder; `place` names it for other rclone commands."""

    def __init__(self, files, environment):
        self.files = files
        self.environment = environment

    @staticmethod
    def place(name):
        return f"yard:{name}"


@contextlib.contextmanager
def rclone(protocol, folder):
    """@param protocol  "sftp" or "webdav" """
    home = os.path.join(folder, "rclone-" + protocol)
    files = os.path.join(home, "files")
    os.makedirs(files)
    environment = {**os.environ, "HOME": home, "XDG_CACHE_HOME": home, "RCLONE_CONFIG": os.path.join(home, "none")}

    def command(port):
        return ("rclone", "serve", protocol, files, "--addr", f"127.0.0.1:{port}", "--user", "yard", "--pass", "yard")

    with serving(command, env=environment) as (_, port):
        yield RcloneServer(files, {**environment, **_remote(protocol, port, environment)})


def _remote(protocol, port, environment):
    password = output_of("rclone", "obscure", "yard", env=environment).strip()
    remote = {"TYPE": protocol, "USER": "yard", "PASS": password}
    if protocol == "sftp":
        remote |= {"HOST": "127.0.0.1", "PORT": str(port)}
    else:
        remote |= {"URL": f"http://127.0.0.1:{port}", "VENDOR": "other"}
    return {f"RCLONE_CONFIG_YARD_{name}": value for name, value in remote.items()}
