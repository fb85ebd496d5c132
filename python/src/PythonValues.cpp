#include "PythonValues.h"

#include <chrono>
#include <cmath>
#include <variant>

#include <datetime.h>

namespace py = pybind11;

namespace qhpy {

namespace {

// The range both Python's datetime and the command's JSON dates can show:
// 0001-01-01T00:00:00Z to 9999-12-31T23:59:59Z. Dates outside are clamped to
// it, and a date that is no number is the epoch, as in the JSON form.
constexpr double kEarliest = -62135596800.0;
constexpr double kLatest = 253402300799.0;

py::object dateToPython(const qh::Date& date) {
    double seconds = date.unixSeconds;
    if (!std::isfinite(seconds)) seconds = 0;
    seconds = std::clamp(seconds, kEarliest, kLatest);
    double whole = std::floor(seconds);
    int micros = static_cast<int>(std::min(999999.0, std::floor((seconds - whole) * 1e6)));
    auto wholeSeconds = static_cast<std::int64_t>(whole);
    std::int64_t days = wholeSeconds / 86400;
    std::int64_t inDay = wholeSeconds % 86400;
    if (inDay < 0) {
        inDay += 86400;
        days -= 1;
    }
    std::chrono::year_month_day ymd{std::chrono::sys_days{std::chrono::days{days}}};
    PyObject* made = PyDateTimeAPI->DateTime_FromDateAndTime(
        static_cast<int>(ymd.year()), static_cast<int>(static_cast<unsigned>(ymd.month())),
        static_cast<int>(static_cast<unsigned>(ymd.day())), static_cast<int>(inDay / 3600),
        static_cast<int>(inDay / 60 % 60), static_cast<int>(inDay % 60), micros, PyDateTime_TimeZone_UTC,
        PyDateTimeAPI->DateTimeType);
    if (!made) throw py::error_already_set();
    return py::reinterpret_steal<py::object>(made);
}

}  // namespace

void importDateTime() {
    PyDateTime_IMPORT;
    if (!PyDateTimeAPI) throw py::error_already_set();
}

py::str textToPython(std::string_view text) {
    PyObject* made = PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace");
    if (!made) throw py::error_already_set();
    return py::reinterpret_steal<py::str>(made);
}

py::bytes bytesToPython(qh::ByteView bytes) {
    return py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

py::dict toPython(const qh::Dict& dict) {
    py::dict out;
    for (const auto& [key, value] : dict) out[textToPython(key)] = toPython(value);
    return out;
}

py::object toPython(const qh::Value& value) {
    struct Visitor {
        py::object operator()(std::monostate) const { return py::none(); }
        py::object operator()(const std::string& text) const { return textToPython(text); }
        py::object operator()(std::int64_t number) const { return py::int_(number); }
        py::object operator()(double number) const { return py::float_(number); }
        py::object operator()(bool flag) const { return py::bool_(flag); }
        py::object operator()(const qh::Blob& bytes) const { return bytesToPython(bytes.view()); }
        py::object operator()(const qh::Date& date) const { return dateToPython(date); }
        py::object operator()(const qh::Array& array) const {
            py::list out(array.size());
            for (std::size_t i = 0; i < array.size(); ++i) out[i] = toPython(array[i]);
            return out;
        }
        py::object operator()(const qh::Dict& dict) const { return toPython(dict); }
    };
    return std::visit(Visitor{}, value.storage());
}

}  // namespace qhpy
