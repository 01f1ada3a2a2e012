"""Builds the module over the C interface; pkg-config finds the installed library."""

from setuptools import setup

setup(
    cffi_modules=["build_interface.py:builder"],
    options={"bdist_wheel": {"py_limited_api": "cp311"}},
)
