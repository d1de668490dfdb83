import pytest

from board import Board


def boards():
    # Makes initialised boards on short roots below /tmp; each is stopped, checked for
    # leftovers and sanitizer reports, and removed at teardown.
    made = []

    def make():
        made.append(Board())
        made[-1].init()
        return made[-1]

    yield make
    for board in made:
        board.close()
    reports = [line for board in made for line in board.sanitizer_reports]
    if reports:
        pytest.fail("sanitizer reports:\n" + "\n".join(reports))


@pytest.fixture
def make_board():
    yield from boards()


@pytest.fixture(scope="module")
def make_module_board():
    yield from boards()


@pytest.fixture
def board(make_board):
    return make_board()
