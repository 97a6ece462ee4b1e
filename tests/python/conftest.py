"""What the tests of the Python module share."""

import os

import numpy as np
import pytest

SEED = int(os.environ.get("LIBIV_TEST_SEED", "1"))

np.seterr(over="ignore")  # integers wrap around on purpose


def pytest_report_header() -> str:
    return f"LIBIV_TEST_SEED={SEED}"


@pytest.fixture
def random() -> np.random.Generator:
    return np.random.default_rng(SEED)
