"""What the tests of the whole program have in common."""
import http.client
import json
import os
import pathlib
import shlex
import sys

import pytest

sys.path.append(str(pathlib.Path(__file__).parents[1] / "scripts"))
from daemon import SECONDS, Daemon


def pytest_addoption(parser):
    parser.addoption("--command", required=True, help="the executable, behind an emulator or not")


@pytest.fixture
def daemon(request, tmp_path):
    yield Daemon(shlex.split(request.config.getoption("--command")), tmp_path)
    assert not list(tmp_path.glob(".feature_toggled*")), "a sibling of a saved file is left"


def schema(revision, **values):
    """The secondary schema file as the daemon writes it: texts end at a NUL."""
    variables = [dict(key=key, value=value.partition("\0")[0], description="", options=[])
                 for key, value in sorted(values.items())]
    return json.dumps(dict(git_revision=revision, variables=variables),
                      ensure_ascii=False, separators=(",", ":"))


def send(port, target, form=None):
    """Posts a form, or gets the target if there is none: status, content type and body."""
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=SECONDS)
    connection.request("GET" if form is None else "POST", target, form,
                       {"Content-Type": "application/x-www-form-urlencoded"})
    answer = connection.getresponse()
    return answer.status, answer.getheader("Content-Type"), os.fsdecode(answer.read())
