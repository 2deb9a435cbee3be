"""3-D capacitance extraction of IC interconnect by the floating random walk.

    import torva
    layout = torva.read_layout("bus.cap3d")
    index = layout.index()
    d, reach, block = index.nearest(points)      # points: (N, 3) float64
    r = torva.extract(layout, self_precision=0.01, threads=2, seed=7)
    r.nets, r.matrix, r.stderr                   # fF
    cell, report = torva.import_gds("inv.gds", "sky130A")   # a GDS cell on a process stack

The library's lines go to the logger named "torva" of Python's logging
(progress at INFO, details at DEBUG, warnings at WARNING); nothing is printed
unless logging is configured to show it. Failures raise TorvaError with the
library's message. numpy is needed by the calls that return arrays, not by
the import.
"""

import logging as _logging

from ._torva import (
    ExtractResult,
    Index,
    Layout,
    Tables,
    TorvaError,
    convert,
    extract,
    generate,
    import_gds,
    load_tables,
    read_layout,
)

# A library leaves the choice of what to show to the application.
_logging.getLogger("torva").addHandler(_logging.NullHandler())

__all__ = [
    "ExtractResult",
    "Index",
    "Layout",
    "Tables",
    "TorvaError",
    "convert",
    "extract",
    "generate",
    "import_gds",
    "load_tables",
    "read_layout",
]
