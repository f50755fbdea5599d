"""Runs the interface compiler on a definitions directory into a dictionary of outputs."""

import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.dirname(HERE))

import xidl_components  # noqa: E402
import xidl_cpp  # noqa: E402
import xidl_por  # noqa: E402
import xidlc  # noqa: E402
from xidl_model import Model  # noqa: E402
from xidl_parser import parse_file  # noqa: E402


def generate(defs):
    """Path relative to the output directory -> text, for the records and the components."""
    order = os.path.join(defs, "modules.txt")
    model = Model([parse_file(p) for p in xidlc.read_order(order)])
    files = {"tessel_link/xidl/records.h": xidl_cpp.header(model),
             "xidl/catalogue.cpp": xidl_cpp.catalogue_unit(model),
             xidl_por.OUTPUT: xidl_por.types_unit(model)}
    for m in model.modules:
        files[xidl_cpp.module_header_path(m)] = xidl_cpp.module_header(model, m)
        files["xidl/%s.cpp" % m.stem] = xidl_cpp.module_unit(model, m)
        if m.hierarchies():
            files["xidl/%s_polytypes.cpp" % m.stem] = xidl_cpp.polytypes_unit(model, m)
    comps = xidl_components.read_all(order, os.path.join(defs, "components"))
    for path, make in xidl_components.generated_files(comps).items():
        text = make()
        files[path] = text if text.endswith("\n") else text + "\n"
    assert set(files) >= set(xidlc.outputs(model))
    return files
