from datetime import datetime
from os import PathLike
from types import TracebackType
from typing import Any, Final, NamedTuple, SupportsFloat, SupportsIndex, TypeVar

from numpy import float64, int32, int64
from numpy.typing import ArrayLike, NDArray

__version__: Final[str]
INVALID_POINT: Final = -1
NO_ZONE: Final = -2
UNKNOWN: Final = -3

_Self = TypeVar("_Self", bound=Database)

class Border(NamedTuple):
    metres: float
    holds: float
    lat: float
    lon: float
    bearing: float
    zones: tuple[str, ...]

class Database:
    def __init__(
        self,
        path: str | bytes | PathLike[str] | PathLike[bytes] | None = None,
        *,
        verify: bool = True,
        mapped: bool = False,
        nautical: bool = True,
    ) -> None: ...
    def zone(self, lat: SupportsFloat | SupportsIndex, lon: SupportsFloat | SupportsIndex) -> str | None: ...
    def zones(self, lat: SupportsFloat | SupportsIndex, lon: SupportsFloat | SupportsIndex) -> list[str]: ...
    def local_time(
        self, lat: SupportsFloat | SupportsIndex, lon: SupportsFloat | SupportsIndex, when: datetime | None = None
    ) -> datetime | None: ...
    def nearest_border(
        self, lat: SupportsFloat | SupportsIndex, lon: SupportsFloat | SupportsIndex, *, limit: float = ...
    ) -> Border | None: ...
    def zones_within(
        self, lat: SupportsFloat | SupportsIndex, lon: SupportsFloat | SupportsIndex, metres: float
    ) -> dict[str, float]: ...
    def find(self, lats: ArrayLike, lons: ArrayLike, *, threads: int = 1) -> NDArray[int32]: ...
    def find_all(
        self, lats: ArrayLike, lons: ArrayLike, *, threads: int = 1
    ) -> tuple[NDArray[int64], NDArray[int32]]: ...
    def find_borders(
        self, lats: ArrayLike, lons: ArrayLike, *, limit: ArrayLike = ..., threads: int = 1
    ) -> NDArray[Any]: ...
    def find_within(
        self, lats: ArrayLike, lons: ArrayLike, metres: ArrayLike, *, threads: int = 1
    ) -> tuple[NDArray[int64], NDArray[int32], NDArray[float64]]: ...
    def zone_id(self, name: str) -> int: ...
    @property
    def names(self) -> tuple[str, ...]: ...
    @property
    def version(self) -> int: ...
    @property
    def notice(self) -> str: ...
    @property
    def path(self) -> str: ...
    def close(self) -> None: ...
    def __enter__(self: _Self) -> _Self: ...
    def __exit__(
        self,
        type: type[BaseException] | None,
        value: BaseException | None,
        traceback: TracebackType | None,
    ) -> None: ...
