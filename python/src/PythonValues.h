#pragma once
// Message dictionary values as Python objects: strings as str (invalid UTF-8
// replaced by U+FFFD, as the command's JSON does), numbers as int or float,
// booleans, byte buffers as bytes, dates as timezone-aware datetimes in UTC,
// arrays as lists, dictionaries as dicts in key order, null as None.
#include <pybind11/pybind11.h>

#include <quillhaven/Value.h>

namespace qhpy {

pybind11::object toPython(const qh::Value& value);
pybind11::dict toPython(const qh::Dict& dict);
// A str from UTF-8 text read from a file: invalid sequences become U+FFFD.
pybind11::str textToPython(std::string_view text);
pybind11::bytes bytesToPython(qh::ByteView bytes);

// Call once when the module loads, before any date is converted.
void importDateTime();

}  // namespace qhpy
