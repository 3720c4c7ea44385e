#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Drives libMonitorGain.so by ctypes alone. Usage: gain_from_python.py LIBRARY"""
import ctypes
import sys


class AudioBuffer(ctypes.Structure):
    _fields_ = [
        ("mNumberChannels", ctypes.c_uint32),
        ("mDataByteSize", ctypes.c_uint32),
        ("mData", ctypes.c_void_p),
    ]


class AudioBufferList(ctypes.Structure):
    _fields_ = [("mNumberBuffers", ctypes.c_uint32), ("mBuffers", AudioBuffer * 2)]


def load(path):
    library = ctypes.CDLL(path)
    library.MonitorGainCreate.restype = ctypes.c_void_p
    library.MonitorGainDestroy.argtypes = [ctypes.c_void_p]
    library.MonitorGainSet.argtypes = [ctypes.c_void_p, ctypes.c_float]
    library.MonitorGainFailed.argtypes = [ctypes.c_void_p]
    library.MonitorGainFailed.restype = ctypes.c_bool
    library.MonitorGainFrames.argtypes = [ctypes.c_void_p]
    library.MonitorGainFrames.restype = ctypes.c_uint64
    library.MonitorGainRender.argtypes = [ctypes.c_void_p, ctypes.c_void_p, ctypes.c_void_p]
    library.MonitorGainRender.restype = None
    return library


def buffers(*arrays):
    """A list of stereo buffers over float arrays."""
    result = AudioBufferList(len(arrays))
    for index, array in enumerate(arrays):
        result.mBuffers[index] = AudioBuffer(2, ctypes.sizeof(array), ctypes.addressof(array))
    return result


def expect(actual, expected, what):
    if actual != expected:
        sys.exit(f"gain from Python: {what}: {actual} instead of {expected}")


def main():
    library = load(sys.argv[1])
    eight = ctypes.c_float * 8
    source, first, second = eight(*[1.0] * 8), eight(*[9.0] * 8), eight(*[9.0] * 8)
    state = library.MonitorGainCreate()
    library.MonitorGainSet(state, 0.5)
    two = buffers(source, source)
    output = buffers(first, second)
    library.MonitorGainRender(state, ctypes.byref(two), ctypes.byref(output))
    ramp = [0.875, 0.875, 0.75, 0.75, 0.625, 0.625, 0.5, 0.5]
    expect(list(first), ramp, "first buffer")
    expect(list(second), ramp, "second buffer")
    expect(library.MonitorGainFrames(state), 1, "frames")
    expect(library.MonitorGainFailed(state), False, "failed")
    library.MonitorGainRender(state, ctypes.byref(buffers(source)), ctypes.byref(output))
    expect(list(first) + list(second), [0.0] * 16, "outputs of a list that does not fit")
    expect(library.MonitorGainFailed(state), True, "failed")
    library.MonitorGainDestroy(state)


main()
