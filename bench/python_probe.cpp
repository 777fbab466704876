// What python_bench.py compares the Python module with: the C library without Python, and a call of
// the same form as Database.zone that does nothing.
#include <offlinetz.h>
#include <pybind11/pybind11.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

namespace {

namespace py = pybind11;

class Empty {
  public:
    py::object Zone(double lat, double lon) const { return mNames[lat < lon ? 0 : 1]; }

  private:
    py::tuple mNames = py::make_tuple("Zone/A", "Zone/B");
};

template <typename Work>
double Seconds(const Work& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The seconds that offlinetz_find takes for all points, and offlinetz_find_many.
py::tuple TimeInC(const std::string& path, const py::buffer& lats, const py::buffer& lons) {
    offlinetz_database* database;
    if (offlinetz_open(path.c_str(), 0, &database) != OFFLINETZ_OK)
        throw py::value_error(offlinetz_message(database));
    const auto count = static_cast<size_t>(lats.request().size);
    const auto* lat = static_cast<const double*>(lats.request().ptr);
    const auto* lon = static_cast<const double*>(lons.request().ptr);
    std::vector<int32_t> ids(count);
    const double one = Seconds([&] {
        for (size_t i = 0; i < count; ++i)
            offlinetz_find(database, lat[i], lon[i], &ids[i], 1, nullptr, nullptr);
    });
    const double many = Seconds([&] {
        offlinetz_find_many(database, count, lat, sizeof *lat, lon, sizeof *lon, ids.data(),
                            sizeof ids[0], nullptr, 0);
    });
    offlinetz_close(database);
    return py::make_tuple(one, many);
}

}  // namespace

PYBIND11_MODULE(python_probe, module) {
    py::class_<Empty>(module, "Empty")
            .def(py::init<>())
            .def("zone", &Empty::Zone, py::arg("lat"), py::arg("lon"));
    module.def("time_in_c", TimeInC);
}
