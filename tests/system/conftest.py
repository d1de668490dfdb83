import os

import pytest

from board import Board, program


def pytest_sessionstart(session):
    missing = [p for p in ("custodo-board", "custodo", "custodo-probe") if not os.path.exists(program(p))]
    if missing:
        raise pytest.UsageError("not built in %s: %s (set CUSTODO_BUILD)"
                                % (os.path.dirname(program("custodo")), ", ".join(missing)))


@pytest.fixture
def make_board():
    """Creates initialised boards on short roots below /tmp; each is stopped, checked for
    leftovers and sanitizer reports, and removed at teardown."""
    boards = []

    def make():
        board = Board()
        boards.append(board)
        board.init()
        return board

    yield make
    reports = []
    for board in boards:
        board.close()
        reports += board.sanitizer_reports
    if reports:
        pytest.fail("sanitizer reports:\n" + "\n".join(reports))


@pytest.fixture
def board(make_board):
    return make_board()
