"""Type stubs of the torva module (the names of torva._torva)."""

import os
from typing import Callable, NamedTuple, overload

import numpy as np
import numpy.typing as npt

_Path = str | os.PathLike[str]

class TorvaError(RuntimeError):
    """A failure reported by the torva library; the message holds the library's own lines."""

class Nearest(NamedTuple):
    """Answers of Index.nearest."""

    distance: npt.NDArray[np.float64]
    reach: npt.NDArray[np.float64]
    block: npt.NDArray[np.int64]

class Progress(NamedTuple):
    """What extract reports while it runs."""

    master: int
    net: str
    master_count: int
    walks: int
    self_error: float
    goal: float
    seconds: float

class Layout:
    """A layout read from a cap3d file; read-only."""

    @property
    def path(self) -> str: ...
    @property
    def binary(self) -> bool: ...
    @property
    def nets(self) -> list[str]:
        """Conductor names, in the file's order."""
    @property
    def floating(self) -> list[str]:
        """Names of the floating conductors."""
    @property
    def block_count(self) -> int: ...
    @property
    def boxes(self) -> npt.NDArray[np.float64]:
        """(M, 2, 3): each conductor block's bounding box, lower corner then upper."""
    @property
    def kinds(self) -> npt.NDArray[np.uint8]:
        """(M,): 0 cuboid, 1 cylinder, 2 prism."""
    @property
    def block_nets(self) -> npt.NDArray[np.int32]:
        """(M,): index in `nets` of each block's conductor."""
    @property
    def block_layers(self) -> npt.NDArray[np.int16]: ...
    @property
    def block_names(self) -> list[str]: ...
    @property
    def window(self) -> npt.NDArray[np.float64] | None:
        """(2, 3): the simulation box; None when the file has none."""
    @property
    def boundary(self) -> str | None:
        """'dirichlet', 'neumann' or None."""
    @property
    def parameters(self) -> dict[str, float | int | bool | str]: ...
    @property
    def tasks(self) -> list[str]: ...
    @property
    def media(self) -> list[tuple[str, float, int]]:
        """(name, relative permittivity, block count)."""
    @property
    def plate_media(self) -> list[tuple[str, float, float]]:
        """(name, height of the upper face, relative permittivity)."""
    @property
    def layers(self) -> dict[int, str]: ...
    def index(self, strategy: int = 10, threads: int = 0) -> Index:
        """Builds the search structure (strategy 0..9, or 10 to let the library choose)."""

class Index:
    """The search structure of a layout; keeps its layout alive."""

    def nearest(self, points: npt.ArrayLike, limit: float = 1e9, threads: int = 0) -> Nearest:
        """The nearest conductor block from each of an (N, 3) batch of points."""
    @property
    def layout(self) -> Layout: ...
    @property
    def strategy(self) -> int: ...
    @property
    def pair(self) -> str: ...
    @property
    def threads(self) -> int: ...
    @property
    def build_seconds(self) -> float: ...
    @property
    def space(self) -> npt.NDArray[np.float64]:
        """(2, 3): the box nearest accepts points in."""

class ExtractResult:
    """Capacitances in fF: rows are `masters`, columns are `nets`."""

    @property
    def nets(self) -> list[str]: ...
    @property
    def masters(self) -> list[str]: ...
    @property
    def has_ground(self) -> bool: ...
    @property
    def matrix(self) -> npt.NDArray[np.float64]: ...
    @property
    def stderr(self) -> npt.NDArray[np.float64]: ...
    @property
    def walks(self) -> npt.NDArray[np.uint64]: ...
    @property
    def hops(self) -> npt.NDArray[np.float64]: ...
    @property
    def self_error(self) -> npt.NDArray[np.float64]: ...
    @property
    def master_stopped_by(self) -> list[str]: ...
    @property
    def stopped_by(self) -> str: ...
    @property
    def seconds(self) -> float: ...
    @property
    def setup_seconds(self) -> float: ...
    @property
    def permittivity(self) -> float: ...
    @property
    def dielectric(self) -> str: ...
    @property
    def stop_distance(self) -> float: ...
    @property
    def self_precision(self) -> float: ...
    @property
    def coupling_precision(self) -> float: ...
    @property
    def threads(self) -> int: ...
    @property
    def seed(self) -> int: ...
    @property
    def strategy(self) -> int: ...
    @property
    def warnings(self) -> list[str]: ...
    def write_json(self, path: str) -> None: ...

class Tables:
    """The tables loaded for a dielectric stack."""

    @property
    def mode(self) -> int: ...
    @property
    def stack(self) -> list[float]: ...
    @property
    def first_table(self) -> npt.NDArray[np.float64]: ...
    @property
    def groups(self) -> dict[str, tuple[int, int]]: ...

def read_layout(
    path: str, incline_slices: int = 4, allow_floating: bool = True, cuboids_only: bool = False
) -> Layout:
    """Reads a cap3d layout, text or binary."""

def extract(
    layout: _Path | Layout,
    *,
    self_precision: float | None = None,
    coupling_precision: float | None = None,
    threads: int | None = None,
    seed: int | None = None,
    masters: list[str] = ...,
    max_walks: int = 0,
    time_limit: float = 0.0,
    strategy: int = -1,
    progress: Callable[[Progress], object] | None = None,
) -> ExtractResult:
    """Extracts the capacitance matrix of a layout."""

def import_gds(
    path: _Path,
    stack: _Path,
    *,
    top: str = "",
    nets: list[str] = ...,
    window_margin: float | None = None,
) -> tuple[Layout, dict[str, object]]:
    """Imports a GDS cell on a process stack (a shipped name or a stack file): (layout, report)."""

def convert(
    source: _Path,
    target: _Path,
    *,
    force: bool = False,
    swapped: bool = False,
    note: str = "",
    incline_slices: int = 4,
) -> dict[str, str | int]:
    """Converts a layout between its text and binary forms."""

@overload
def generate(
    kind: str,
    path: None = None,
    *,
    size: int = 1000,
    layers: int = 2,
    polygons: float = 0.0,
    cylinders: float = 0.0,
    inclines: float = 0.0,
    media: bool = False,
    seed: int = 1,
    tasks: int = 4,
    binary: bool = False,
    force: bool = False,
) -> str | bytes: ...
@overload
def generate(
    kind: str,
    path: _Path,
    *,
    size: int = 1000,
    layers: int = 2,
    polygons: float = 0.0,
    cylinders: float = 0.0,
    inclines: float = 0.0,
    media: bool = False,
    seed: int = 1,
    tasks: int = 4,
    binary: bool = False,
    force: bool = False,
) -> str: ...
def load_tables(
    mode: int,
    dir: _Path,
    diels: list[float] = ...,
    *,
    dir_two: _Path | None = None,
    dir_multi: _Path | None = None,
    dir_equal: _Path | None = None,
    walk_scheme: int = 0,
    force: bool = False,
) -> Tables:
    """Loads the Green's function and weight tables for a dielectric stack."""
