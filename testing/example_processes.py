"""What the Python tests that run zolhost share, without a browser: free TCP ports that no
other program will be handed meanwhile, and a copy of the examples as an application
directory on such a port."""

import os
import random
import shutil
import socket


class ExampleSetupFailed(Exception):
    pass


def _ephemeral_low():
    """The first port of the range the system hands out to outgoing connections."""
    try:
        with open("/proc/sys/net/ipv4/ip_local_port_range", encoding="ascii") as ports:
            return int(ports.read().split()[0])
    except (OSError, ValueError, IndexError):
        return 32768


def free_port():
    """A TCP port below the system's range for outgoing connections (a port drawn from that
    range may be handed to another test's client before zolhost listens on it), free on
    loopback now."""
    low = min(_ephemeral_low(), 32768)
    for _ in range(200):
        port = random.randrange(20000, low)
        with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as probe:
            try:
                probe.bind(("127.0.0.1", port))
            except OSError:
                continue
            return port
    raise ExampleSetupFailed("no free TCP port found between 20000 and %d" % low)


def free_ports(count):
    ports = []
    while len(ports) < count:
        port = free_port()
        if port not in ports:
            ports.append(port)
    return ports


def copy_examples(examples, target, page_port):
    """The examples as an application directory under `target`, its TCP port `page_port`."""
    shutil.copytree(os.path.join(examples, "site"), os.path.join(target, "site"))
    if os.path.isdir(os.path.join(examples, "HTML")):
        shutil.copytree(os.path.join(examples, "HTML"), os.path.join(target, "HTML"))
    os.makedirs(os.path.join(target, "Config"))
    with open(os.path.join(examples, "Config", "ZOLServer.ini"), encoding="utf-8", newline="") as source:
        settings = source.read()
    if "port=51000" not in settings:
        raise ExampleSetupFailed("the example settings name no TCP port 51000")
    with open(os.path.join(target, "Config", "ZOLServer.ini"), "w", encoding="utf-8", newline="") as copy:
        copy.write(settings.replace("port=51000", f"port={page_port}", 1))
