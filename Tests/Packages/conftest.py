import pathlib

import pytest

from session import Session


def pytest_addoption(parser):
    parser.addoption("--packages", type=pathlib.Path, required=True,
                     help="a directory with the packages: current/ and perhaps previous/")


@pytest.fixture(scope="session")
def packages(request):
    return request.config.getoption("--packages")


@pytest.fixture
def session():
    session = Session()
    yield session
    session.close()
