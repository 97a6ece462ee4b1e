"""Checks of single values: each returns the value or raises, saying what was expected."""

from __future__ import annotations

import math
import numbers
import operator

LARGEST_INT = 2**31 - 1


def number(name: str, value: float) -> float:
    if not isinstance(value, numbers.Real):
        raise TypeError(f"{name}: expected a number, got {value!r}")
    return float(value)


def positive(name: str, value: float) -> float:
    if not 0 < number(name, value) < math.inf:
        raise ValueError(f"{name}: expected a finite number above 0, got {value}")
    return float(value)


def fraction(name: str, value: float) -> float:
    if not 0 <= number(name, value) <= 1:
        raise ValueError(f"{name}: expected a number from 0 to 1, got {value}")
    return float(value)


def count(name: str, value: int, most: int = LARGEST_INT) -> int:
    try:
        result = operator.index(value)
    except TypeError:
        raise TypeError(f"{name}: expected an integer, got {value!r}") from None
    if not 1 <= result <= most:
        raise ValueError(f"{name}: expected an integer from 1 to {most}, got {result}")
    return result
