"""The management server of the private device, on a socket that it is handed."""

import os
import signal
import socket
import subprocess

from device import NO_MODE, PATIENCE, ROOT
from provisioning import PROGRESS


def test_the_server_takes_a_listening_socket(device, package, tmp_path):
    target = device.state / "target"
    target.mkdir()
    with socket.create_server(("127.0.0.1", 0)) as listener:
        address = "127.0.0.1:%d" % listener.getsockname()[1]
        server = subprocess.Popen(
            # Whatever number the socket has here, it is descriptor 3 there.
            ["bash", "-c", f'exec "$@" 3<&{listener.fileno()}', "bash", ROOT / "device/server/start", "--package", package()]
            + [tmp_path / "server"],
            pass_fds=[listener.fileno()],
            env={**os.environ, "LISTEN_FDS": "1"},
        )
        try:
            # The listener is there already, so that nobody has to wait for the server.
            arguments = ("-m", "-d", target, "-z", "-e", address, "-U", "admin", "-P", "zentor 4711")
            assert device.run(*arguments).result() == (NO_MODE + PROGRESS, b"", 0)
        finally:
            server.send_signal(signal.SIGTERM)
            server.wait(PATIENCE)
