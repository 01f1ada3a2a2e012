from collections.abc import Callable
from typing import Any, TypeVar

_Function = TypeVar("_Function", bound=Callable[..., Any])

class _FFI:
    def def_extern(self) -> Callable[[_Function], _Function]: ...
    def __getattr__(self, name: str) -> Any: ...

ffi: _FFI
lib: Any
