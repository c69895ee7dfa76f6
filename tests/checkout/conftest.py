import pathlib

import pytest


def pytest_addoption(parser):
    parser.addoption("--program", help="kelt_test_base of the build of --binary")


@pytest.fixture(scope="session")
def program(request):
    return pathlib.Path(request.config.getoption("--program")).resolve()
