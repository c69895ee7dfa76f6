"""What becomes of addresses, answers and server's offers that are not as one expects: what the manual page says of them."""

import base64
import re

import pytest

from device import NO_MODE
from provisioning import CONTACTED, HINT, NO_SUCCESS, PROGRESS, make_reply
from reply_server import ReplyServer, ok

FAILED = (NO_MODE + CONTACTED + b" ERROR\n", b"", 32)


@pytest.fixture
def target(device):
    directory = device.state / "target"
    directory.mkdir()
    return directory


def ports_tried(device, target, server):
    """The result of a run with this server, and the addresses and ports that it tried to reach over TCP."""
    run = device.run(
        *("-m", "-d", target, "-z", "-e", server, "-U", "admin", "-P", "p"),
        via="strace -f -e trace=connect -o /run/trace",
    )
    trace = device.take("/run/trace").decode()
    connects = re.findall(r"sin6?_port=htons\((\d+)\).*?(?:inet_addr\(|inet_pton\(AF_INET6, )\"([^\"]+)\"", trace)
    return run.result(), {(address, int(port)) for port, address in connects if port not in ("0", "53", "8443")}


def test_a_host_with_a_colon_and_no_port_is_asked_at_port_443(device, target):
    # The network of the device is the machine's; nobody listens at this address.
    result, tried = ports_tried(device, target, "127.0.0.77:")
    assert result == FAILED
    assert tried == {("127.0.0.77", 443)}


@pytest.mark.parametrize("server", ["::1", "fe80::1", "::1:8444", "2001:db8::1:1"])
def test_an_ipv6_address_without_brackets_is_no_address(device, target, server):
    result, tried = ports_tried(device, target, server)
    assert result == FAILED
    assert tried == set()


def unauthorized(*schemes):
    lines = "".join(f"WWW-Authenticate: {scheme}\r\n" for scheme in schemes)
    head = f"HTTP/1.1 401 Unauthorized\r\n{lines}Content-Length: 0\r\nConnection: close\r\n\r\n"
    return head.encode()


BASIC = 'Basic realm="z"'
DIGEST = 'Digest realm="z", nonce="n", qop="auth"'


def asked(device, target, *answers):
    """A run against a server with these answers. Returns its result and the requests."""
    with ReplyServer(*answers) as server:
        run = device.run("-m", "-d", target, "-z", "-e", server.address, "-U", "admin", "-P", "p")
    return run.result(), server.requests


@pytest.mark.parametrize(
    "others",
    [("Negotiate",), ('Digest realm="z", nonce="n", algorithm=SHA-999',), ("Negotiate", DIGEST)],
    ids=["negotiate", "unknown-digest", "negotiate-and-digest"],
)
def test_nothing_else_is_tried_where_the_best_offer_does_not_work(device, target, certificate, others):
    """A device has no ticket for Negotiate."""
    for schemes in ((*others, BASIC), (BASIC, *others)):
        result, requests = asked(device, target, certificate, unauthorized(*schemes))
        assert result == (NO_MODE + NO_SUCCESS + HINT, b"", 40)
        assert requests
        assert not any(b"Authorization:" in request for request in requests)


@pytest.mark.parametrize(
    "schemes",
    [(BASIC,), (BASIC, DIGEST), (BASIC, "Bearer"), (BASIC, "Unheard-of")],
    ids=["basic", "basic-and-digest", "basic-and-bearer", "basic-and-unknown"],
)
def test_the_best_of_basic_and_digest_is_used(device, target, package, certificate, schemes):
    result, requests = asked(device, target, certificate, unauthorized(*schemes), ok(make_reply(package("--both"))))
    assert result == (NO_MODE + PROGRESS, b"", 0)
    expected = b"Authorization: Digest" if DIGEST in schemes else b"Authorization: Basic"
    assert [expected in request for request in requests] == [False, True]


def run_with_answers(device, target, content, *options):
    path = device.path("/run/answers")
    path.write_bytes(content)
    with path.open("rb") as answers:
        return device.run("-m", "-d", target, "-z", *options, stdin=answers)


def test_a_carriage_return_stays_part_of_an_answer(device, target, package, certificate):
    with ReplyServer(certificate, unauthorized(BASIC), ok(make_reply(package("--both")))) as server:
        run = run_with_answers(device, target, b"admin\r\nsecret\r\n", "-e", server.address)
    assert run.result() == (NO_MODE + b"username:\npassword:\n" + PROGRESS, b"", 0)
    assert b"Authorization: Basic " + base64.b64encode(b"admin\r:secret\r") in server.requests[1]


def test_a_server_that_ends_in_a_carriage_return_is_no_address(device, target):
    run = run_with_answers(device, target, b"127.0.0.1:1\r\n", "-U", "admin", "-P", "p")
    assert run.result() == (NO_MODE + b"zentorserver:\n" + CONTACTED + b" ERROR\n", b"", 32)
