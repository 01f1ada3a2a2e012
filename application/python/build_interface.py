"""Declares the C interface to cffi: from the installed header itself, so that the two cannot differ."""

import pathlib
import re
import subprocess

from cffi import FFI


def pkg_config(option: str) -> list[str]:
    return subprocess.run(
        ["pkg-config", option, "brenloftsdk"], check=True, capture_output=True, text=True
    ).stdout.split()


def header_folder() -> pathlib.Path:
    for flag in pkg_config("--cflags-only-I"):
        folder = pathlib.Path(flag.removeprefix("-I"))
        if (folder / "brenloft.h").is_file():
            return folder
    raise SystemExit("brenloft.h is not where pkg-config says; is the library installed?")


def declarations(header: str) -> str:
    """The header without what only a compiler understands: comments, directives, attributes."""
    text = re.sub(r"/\*.*?\*/", "", header, flags=re.S)
    text = re.sub(r"\\\n", " ", text)
    text = re.sub(r"^\s*#.*$", "", text, flags=re.M)
    text = text.replace('extern "C" {', "").replace("BRENLOFT_API", "")
    end = text.rindex("}", 0, len(text))
    # The brace that closes extern "C".
    return text[:end] if text[end:].strip() == "}" else text


folder = header_folder()
builder = FFI()
builder.cdef(declarations((folder / "brenloft.h").read_text()))
builder.cdef('extern "Python" void brenloft_python_message(void *, const char *);')
builder.cdef('extern "Python" void brenloft_python_source(void *, const brenloft_source *);')
builder.set_source(
    "brenloft._interface",
    "#include <brenloft.h>",
    include_dirs=[str(folder)],
    library_dirs=[flag.removeprefix("-L") for flag in pkg_config("--libs-only-L")],
    libraries=["BrenloftSDK"],
    py_limited_api=True,
    define_macros=[("Py_LIMITED_API", "0x030B0000")],
)

if __name__ == "__main__":
    builder.compile(verbose=True)
