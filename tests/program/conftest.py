import pytest

from user import Folder


@pytest.fixture
def folder():
    with Folder() as made:
        yield made
