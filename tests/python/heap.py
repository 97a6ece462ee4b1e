"""How much memory is in use."""

import ctypes
import gc


class Info(ctypes.Structure):
    """struct mallinfo2 of the C library."""

    _fields_ = [
        *((name, ctypes.c_size_t) for name in "abcdefg"),
        ("in_use", ctypes.c_size_t),
        *((name, ctypes.c_size_t) for name in "hi"),
    ]


mallinfo2 = ctypes.CDLL(None).mallinfo2
mallinfo2.restype = Info


def heap_in_use() -> int:
    """Bytes that the C library's heap has given out."""
    gc.collect()
    return int(mallinfo2().in_use)
