"""Run by test_killed.py alone, as no other run of the tests takes this file up: a rollout that hangs in the middle, and a browser."""

from browser import Browser
from fleet import PLAYBOOKS
from test_rollout import stopping_with


def test_a_rollout_that_does_not_end(fleet_of, make_keys, tmp_path):
    browser = Browser(tmp_path / "log")
    page = tmp_path / "page.html"
    page.write_text("<title>a page</title>")
    browser.open(page)
    fleet = fleet_of(2, "--server")
    fleet.boot(2, stopping_with("sleep 86400"))
    fleet.play(PLAYBOOKS / "managed.yml", keltconfig_source=str(make_keys("192.0.2.10")), keltconfig_batches=["100%"])
