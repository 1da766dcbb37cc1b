"""What the tests of the whole program have in common."""
import json
import shlex

import pytest
from daemon import Daemon


def pytest_addoption(parser):
    parser.addoption("--command", required=True, help="the executable, behind an emulator or not")


@pytest.fixture
def daemon(request, tmp_path):
    yield Daemon(shlex.split(request.config.getoption("--command")), tmp_path)
    assert not list(tmp_path.rglob(".*.new")), "a save has left what it wrote"


@pytest.fixture
def traced(daemon):
    if len(daemon.command) > 1:
        pytest.skip("an emulator's system calls are its own")
    daemon.env["ASAN_OPTIONS"] = "detect_leaks=0"  # which cannot be done to a traced process
    return daemon


def schema(revision, **values):
    """The secondary schema file as the daemon writes it: texts end at a NUL."""
    variables = [dict(key=key, value=value.partition("\0")[0], description="", options=[])
                 for key, value in sorted(values.items())]
    return json.dumps(dict(git_revision=revision, variables=variables),
                      ensure_ascii=False, separators=(",", ":"))
