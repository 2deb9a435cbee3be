// The torva extension module: the library's layouts, search structures,
// extraction, conversion, generator and tables, for Python.
#include "bindings.h"

PYBIND11_MODULE(_torva, m) {
  using namespace torva::python;
  m.doc() = "3-D capacitance extraction of IC interconnect by the floating random walk.";
  bind_logging(m);
  layout_class layout = bind_layout(m);
  bind_index(m, layout);
  bind_extract(m);
  bind_files(m);
  bind_import(m);
}
