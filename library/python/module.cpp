// The Python module offlinetz.
#include <offlinetz.h>
#include <pybind11/pybind11.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "library/default_database.h"
#include "point_blocks.h"

namespace {

namespace py = pybind11;
using offlinetz::Buffer;
using offlinetz::PointArrays;
using offlinetz::PointBlock;

py::object TextOf(const char* bytes) {
    return py::reinterpret_steal<py::object>(
            PyUnicode_DecodeUTF8(bytes, static_cast<py::ssize_t>(std::strlen(bytes)), "replace"));
}

// The text of a path, or of a message with a path in it.
py::object PathText(const std::string& path) {
    return py::reinterpret_steal<py::object>(PyUnicode_DecodeFSDefault(path.c_str()));
}

// The bytes of a path. Throws TypeError if it is none, ValueError if there is a zero in it.
std::string PathOf(const py::object& path) {
    PyObject* bytes;
    if (PyUnicode_FSConverter(path.ptr(), &bytes) == 0) throw py::error_already_set();
    return py::reinterpret_steal<py::bytes>(bytes);
}

// The file beside the module: a wheel has it there, an installation a link to it. Without one the
// database that was installed with the library.
std::string DefaultPath() {
    const std::filesystem::path module = PathOf(py::module_::import("offlinetz").attr("__file__"));
    const std::filesystem::path beside = module.parent_path() / "world.bin";
    std::error_code ignored;
    return std::filesystem::exists(beside, ignored) ? beside.string()
                                                    : offlinetz::DefaultDatabasePath();
}

// Throws the exception for a file that cannot be opened. `number`: the value of errno.
[[noreturn]] void ThrowFault(offlinetz_status status, int number, const std::string& path,
                             const offlinetz_database* database) {
    if (status == OFFLINETZ_UNREADABLE) {
        errno = number;
        PyErr_SetFromErrnoWithFilenameObject(PyExc_OSError, PathText(path).ptr());
    } else {
        std::string message = offlinetz_message(database);
        if (database == nullptr) message = path + ": " + message;
        PyErr_SetObject(status == OFFLINETZ_NO_MEMORY ? PyExc_MemoryError : PyExc_ValueError,
                        PathText(message).ptr());
    }
    throw py::error_already_set();
}

[[noreturn]] void ThrowInvalidPoint(double lat, double lon) {
    const bool isLatValid = lat >= -90.0 && lat <= 90.0;
    throw py::value_error(
            isLatValid ? py::str("the longitude {} is not within -180 to 180").format(lon)
                       : py::str("the latitude {} is not within -90 to 90").format(lat));
}

// Several values for each of some points: those of point i are at offsets[i] to before offsets[i +
// 1].
struct Answers {
    std::vector<int64_t> offsets;
    std::vector<int32_t> ids;
    std::vector<double> distances;  // As many as there are ids, or none.
};

void FindAll(const offlinetz_database& database, const PointBlock& part, Answers* answers) {
    answers->offsets.resize(part.count + 1);
    size_t count = part.count + part.count / 16;
    do {  // Again if there was not enough room.
        answers->ids.resize(count);
        count = offlinetz_find_all(&database, part.count, part.lats.first, part.lats.stride,
                                   part.lons.first, part.lons.stride, answers->offsets.data(),
                                   answers->ids.data(), answers->ids.size());
    } while (count > answers->ids.size());
    answers->ids.resize(count);
}

// The zones within a distance of a point.
struct ZonesWithin {
    int32_t ids[OFFLINETZ_MOST_WITHIN];
    double distances[OFFLINETZ_MOST_WITHIN];
    size_t count;

    // cppcheck-suppress uninitMemberVar ; the first `count` elements are filled.
    ZonesWithin(const offlinetz_database& database, double lat, double lon, double metres)
        : count(offlinetz_zones_within(&database, lat, lon, metres, ids, distances,
                                       OFFLINETZ_MOST_WITHIN)) {}
};

// A point without zones has one value.
void FindWithin(const offlinetz_database& database, const PointBlock& part, Answers* answers) {
    answers->offsets.push_back(0);
    for (size_t i = 0; i < part.count; ++i) {
        ZonesWithin within(database, part.lats.ValueAt(i), part.lons.ValueAt(i),
                           part.metres.ValueAt(i));
        if (within.count == 0) {
            within.count = 1;
            within.distances[0] = std::numeric_limits<double>::quiet_NaN();
        }
        answers->ids.insert(answers->ids.end(), within.ids, within.ids + within.count);
        answers->distances.insert(answers->distances.end(), within.distances,
                                  within.distances + within.count);
        answers->offsets.push_back(static_cast<int64_t>(answers->ids.size()));
    }
}

// An element of the array that find_borders returns.
struct BorderElement {
    double metres;
    double holds;
    double lat;
    double lon;
    double bearing;
    int32_t zone;
    int32_t count;
};

py::list TypeOfBorderElement() {
    py::list fields;
    for (const char* name : {"metres", "holds", "lat", "lon", "bearing"})
        fields.append(py::make_tuple(name, "f8"));
    for (const char* name : {"zone", "count"})
        fields.append(py::make_tuple(name, "i4"));
    return fields;
}

BorderElement FindBorder(const offlinetz_database& database, double lat, double lon, double limit) {
    offlinetz_border border;
    const int result = offlinetz_nearest_border(&database, lat, lon, limit, &border);
    const int32_t zone = border.count > 0 ? border.ids[0]
                         : result < 0     ? int32_t{result}
                                          : int32_t{OFFLINETZ_NO_ZONE};
    return {border.metres,  border.holds, border.lat,  border.lon,
            border.bearing, zone,         border.count};
}

// The class Database. The documents of its members are at the end of this file.
class Database {
  public:
    Database(const py::object& path, bool verify, bool mapped, bool nautical) {
        const std::string name = path.is_none() ? DefaultPath() : PathOf(path);
        unsigned flags = 0;
        if (!verify) flags |= OFFLINETZ_SKIP_DIGEST;
        if (mapped) flags |= OFFLINETZ_MAP;
        if (!nautical) flags |= OFFLINETZ_NO_NAUTICAL;
        offlinetz_database* opened;
        offlinetz_status status;
        int number;
        {
            const py::gil_scoped_release release;
            status = offlinetz_open(name.c_str(), flags, &opened);
            number = errno;
        }
        mOpen.reset(opened, offlinetz_close);
        if (status != OFFLINETZ_OK) ThrowFault(status, number, name, opened);
        const int32_t count = offlinetz_zone_count(opened);
        mNames = py::tuple(count);
        for (int32_t id = 0; id < count; ++id)
            mNames[static_cast<size_t>(id)] = TextOf(offlinetz_zone_name(opened, id));
        std::error_code ignored;
        mPath = PathText(std::filesystem::absolute(name, ignored).string());
        mArguments = py::make_tuple(path.is_none() ? path : mPath, verify, mapped, nautical);
    }

    void Close() { mOpen.reset(); }

    // Holds the GIL: releasing it takes about as long as the lookup.
    py::object Zone(double lat, double lon) const {
        int32_t id;
        offlinetz_find(Open().get(), lat, lon, &id, 1, nullptr, nullptr);
        if (id == OFFLINETZ_INVALID_POINT) ThrowInvalidPoint(lat, lon);
        return id >= 0 ? NameOf(id) : py::none();
    }

    py::list Zones(double lat, double lon) const {
        std::vector<int32_t> ids(1);
        const auto find = [&] {
            return offlinetz_find(Open().get(), lat, lon, ids.data(), ids.size(), nullptr, nullptr);
        };
        const size_t count = find();
        if (ids[0] == OFFLINETZ_INVALID_POINT) ThrowInvalidPoint(lat, lon);
        ids.resize(count);
        if (count > 1) find();
        py::list names;
        for (const int32_t id : ids)
            names.append(NameOf(id));
        return names;
    }

    py::object LocalTime(double lat, double lon, const py::object& when) const {
        const py::object name = Zone(lat, lon);
        if (name.is_none()) return py::none();
        const py::object zone = py::module_::import("zoneinfo").attr("ZoneInfo")(name);
        if (when.is_none())
            return py::module_::import("datetime").attr("datetime").attr("now")(zone);
        if (when.attr("utcoffset")().is_none())
            throw py::value_error(py::str("{!r} has no offset from UTC").format(when));
        return when.attr("astimezone")(zone);
    }

    py::object NearestBorder(double lat, double lon, double limit) const {
        const Handle open = HandleWithBorders();
        offlinetz_border border;
        int result;
        {
            const py::gil_scoped_release release;
            result = offlinetz_nearest_border(open.get(), lat, lon, limit, &border);
        }
        RequireKnown(result, lat, lon);
        if (result == 0) return py::none();
        const auto count = static_cast<size_t>(std::min(border.count, int{OFFLINETZ_BORDER_ROOM}));
        py::tuple zones(count);
        for (size_t i = 0; i < count; ++i)
            zones[i] = NameOf(border.ids[i]);
        return py::module_::import("offlinetz")
                .attr("Border")(border.metres, border.holds, border.lat, border.lon, border.bearing,
                                zones);
    }

    py::dict ZonesIn(double lat, double lon, double metres) const {
        const Handle open = HandleWithBorders();
        const auto within = [&] {
            const py::gil_scoped_release release;
            return ZonesWithin(*open, lat, lon, metres);
        }();
        py::dict zones;
        if (within.count == 0) RequireKnown(within.ids[0], lat, lon);
        for (size_t i = 0; i < within.count; ++i)
            zones[NameOf(within.ids[i])] = within.distances[i];
        return zones;
    }

    py::object Find(const py::object& lats, const py::object& lons, int threads) const {
        return FillArray<int32_t>(
                HandleFor(threads), PointArrays(lats, lons), threads, "int32",
                [](const offlinetz_database& database, const PointBlock& part, int32_t* ids) {
                    offlinetz_find_many(&database, part.count, part.lats.first, part.lats.stride,
                                        part.lons.first, part.lons.stride, ids, sizeof *ids,
                                        nullptr, 0);
                });
    }

    py::object FindBorders(const py::object& lats, const py::object& lons, const py::object& limit,
                           int threads) const {
        HandleWithBorders();
        return FillArray<BorderElement>(
                HandleFor(threads), PointArrays(lats, lons, limit), threads, TypeOfBorderElement(),
                [](const offlinetz_database& database, const PointBlock& part,
                   BorderElement* borders) {
                    for (size_t i = 0; i < part.count; ++i) {
                        borders[i] = FindBorder(database, part.lats.ValueAt(i),
                                                part.lons.ValueAt(i), part.metres.ValueAt(i));
                    }
                });
    }

    py::tuple FindAll(const py::object& lats, const py::object& lons, int threads) const {
        return FillLists(HandleFor(threads), PointArrays(lats, lons), threads, false, ::FindAll);
    }

    py::tuple FindWithin(const py::object& lats, const py::object& lons, const py::object& metres,
                         int threads) const {
        HandleWithBorders();
        return FillLists(HandleFor(threads), PointArrays(lats, lons, metres), threads, true,
                         ::FindWithin);
    }

    int32_t ZoneId(const std::string& name) const {
        const int32_t id = offlinetz_zone_id(Open().get(), name.c_str());
        if (id < 0 || name.find('\0') != std::string::npos) throw py::key_error(name);
        return id;
    }

    py::object Names() const {
        Open();
        return mNames;
    }
    int Version() const { return offlinetz_version(Open().get()); }
    py::object Notice() const { return TextOf(offlinetz_notice(Open().get())); }
    py::object Path() const { return mPath; }
    // What opens the same file in another process: the arguments of the constructor.
    py::tuple Arguments() const {
        Open();
        return mArguments;
    }

  private:
    using Handle = std::shared_ptr<offlinetz_database>;

    const Handle& Open() const {
        if (mOpen == nullptr) throw py::value_error("the database is closed");
        return mOpen;
    }

    // For a call that releases the GIL: meanwhile another thread may close the database.
    Handle HandleFor(int threads) const {
        if (threads < 1) throw py::value_error("threads is less than 1");
        return Open();
    }

    Handle HandleWithBorders() const {
        if (offlinetz_has_borders(Open().get()) == 0) {
            throw py::value_error(
                    py::str("{}: is not tiled, so it has no distances to borders").format(mPath));
        }
        return Open();
    }

    // `result`: of a function for distances, negative if there is none.
    void RequireKnown(int result, double lat, double lon) const {
        if (result == OFFLINETZ_INVALID_POINT) ThrowInvalidPoint(lat, lon);
        if (result == OFFLINETZ_UNKNOWN)
            throw py::value_error(py::str("{}: is damaged").format(mPath));
    }

    py::object NameOf(int32_t id) const { return mNames[static_cast<size_t>(id)]; }

    // Makes an array with a value for each point, by find(database, part, values of the part).
    template <typename Value, typename Type, typename Find>
    static py::object FillArray(const Handle& open, const PointArrays& points, int threads,
                                const Type& type, const Find& find) {
        py::object result = points.NewArray(points.Shape(), type);
        const Buffer values(result, PyBUF_WRITABLE);
        points.ForEachBlock(threads, [&](const PointBlock& block) {
            ForEachPart(block, threads, [&](const PointBlock& part, size_t /*number*/) {
                find(*open, part, values.Data<Value>() + part.begin);
            });
        });
        return result;
    }

    // Makes arrays of offsets, ids and, if they are wanted, distances by find(database, part,
    // answers for the part).
    template <typename Find>
    static py::tuple FillLists(const Handle& open, const PointArrays& points, int threads,
                               bool wantsDistances, const Find& find) {
        const py::object offsets = points.NewArray(points.Count() + 1, "int64");
        const Buffer ends(offsets, PyBUF_WRITABLE);
        *ends.Data<int64_t>() = 0;
        std::vector<int32_t> ids;
        std::vector<double> distances;
        ids.reserve(points.Count() + points.Count() / 16);
        points.ForEachBlock(threads, [&](const PointBlock& block) {
            std::vector<Answers> answers(PartCount(block, threads));
            ForEachPart(block, threads, [&](const PointBlock& part, size_t number) {
                find(*open, part, &answers[number]);
            });
            int64_t* end = ends.Data<int64_t>() + block.begin;
            for (const Answers& part : answers) {
                const auto before = static_cast<int64_t>(ids.size());
                for (size_t i = 1; i < part.offsets.size(); ++i)
                    *++end = before + part.offsets[i];
                ids.insert(ids.end(), part.ids.begin(), part.ids.end());
                distances.insert(distances.end(), part.distances.begin(), part.distances.end());
            }
        });
        const auto arrayOf = [&](const auto& values, const char* type) {
            using Value = typename std::decay_t<decltype(values)>::value_type;
            py::object array = points.NewArray(values.size(), type);
            std::copy(values.begin(), values.end(), Buffer(array, PyBUF_WRITABLE).Data<Value>());
            return array;
        };
        if (!wantsDistances) return py::make_tuple(offsets, arrayOf(ids, "int32"));
        return py::make_tuple(offsets, arrayOf(ids, "int32"), arrayOf(distances, "float64"));
    }

    Handle mOpen;  // Null if closed.
    py::tuple mNames;
    py::object mPath;  // Absolute.
    py::tuple mArguments;
};

}  // namespace

PYBIND11_MODULE(offlinetz, module) {
    using namespace py::literals;
    py::options options;
    options.disable_function_signatures();
    const auto threads = "threads"_a = 1;
    const auto limit = "limit"_a = std::numeric_limits<double>::infinity();

    module.doc() = R"(Which time zone contains a point, without a network.

>>> import offlinetz
>>> offlinetz.Database().zone(48.8566, 2.3522)
'Europe/Paris'

Coordinates are degrees, north and east positive: latitudes from -90 to 90, longitudes from -180 to
180. numpy is imported when the first array comes.)";
    module.attr("__version__") = OFFLINETZ_VERSION;
    module.attr("INVALID_POINT") = py::int_(static_cast<int>(OFFLINETZ_INVALID_POINT));
    module.attr("NO_ZONE") = py::int_(static_cast<int>(OFFLINETZ_NO_ZONE));
    module.attr("UNKNOWN") = py::int_(static_cast<int>(OFFLINETZ_UNKNOWN));
    module.attr("Border") =
            py::module_::import("collections")
                    .attr("namedtuple")("Border", "metres holds lat lon bearing zones",
                                        "module"_a = "offlinetz");
    module.attr("Border").attr("__doc__") = R"(The nearest place where the answer changes.

metres: its distance on a sphere with the earth's mean radius of 6371008.8 m.
holds: every point less than so many metres away has the same zones. This is metres less what
    truncation may do: 30 m in the world database, 48 m where Greenwich is nearer than the border.
lat, lon: the place in degrees.
bearing: the direction to it in degrees, clockwise from north.
zones: a tuple of the names of the zones beyond.)";

    py::class_<Database>(module, "Database",
                         R"(Database(path=None, *, verify=True, mapped=False, nautical=True)

An open database of time zones. Any number of threads may use it.

path: the file. None: the world database that came with the module.
verify: whether to verify the file's digest. Opening is quicker without.
mapped: whether to map the file instead of reading it, so that processes share its memory. Replace a
    mapped file only by renaming another one over it.
nautical: whether points at sea have nautical zones, such as Etc/GMT+3.

Raises OSError (FileNotFoundError and others) if the system cannot read the file, ValueError if it
is no valid database, MemoryError.

A with statement closes the database at its end. After closing, everything but path and close()
raises ValueError. A pickle of a database has its path and flags: the file is opened again where the
database is unpickled.)")
            .def(py::init<const py::object&, bool, bool, bool>(), "path"_a = py::none(),
                 py::kw_only(), py::arg("verify") = true, py::arg("mapped") = false,
                 py::arg("nautical") = true)
            .def(py::pickle([](const Database& database) { return database.Arguments(); },
                            [](const py::tuple& from) {
                                return std::make_unique<Database>(from[0], from[1].cast<bool>(),
                                                                  from[2].cast<bool>(),
                                                                  from[3].cast<bool>());
                            }))
            .def("zone", &Database::Zone, "lat"_a, "lon"_a, R"(zone(lat, lon)

The name of the first zone at a point, such as 'Europe/Paris'; None where there is no zone.

Raises ValueError for a coordinate that is not a number or outside of its range.)")
            .def("zones", &Database::Zones, "lat"_a, "lon"_a, R"(zones(lat, lon)

A list of the names of all zones at a point. There are several where zones are disputed, and on a
border.

Raises ValueError for a coordinate that is not a number or outside of its range.)")
            .def("find", &Database::Find, "lats"_a, "lons"_a, py::kw_only(), threads,
                 R"(find(lats, lons, *, threads=1)

The id of the first zone of each point: an int32 array of the shape of lats and lons, in C order.

An id is an index of names. It is -1 (INVALID_POINT) where a coordinate is not a number or outside
of its range, and -2 (NO_ZONE) where there is no zone.

lats, lons: arrays of one shape, with any strides and of any real type. A column of float64 is not
    copied. Others are converted in blocks.
threads: the number of threads to use. Other Python threads run at the same time.

Raises ValueError if the shapes differ, TypeError if an array holds no real numbers.)")
            .def("find_all", &Database::FindAll, "lats"_a, "lons"_a, py::kw_only(), threads,
                 R"(find_all(lats, lons, *, threads=1)

The ids of all zones of each point: a tuple of two arrays of one dimension, offsets and values.

values (int32) holds the ids of point i from index offsets[i] to before offsets[i + 1]. offsets
(int64) has one element more than there are points. A point without a zone has one value, -1 or -2
as find() gives. Points of arrays of several dimensions are numbered in C order.

Arguments and errors are those of find().)")
            .def("local_time", &Database::LocalTime, "lat"_a, "lon"_a, "when"_a = py::none(),
                 R"(local_time(lat, lon, when=None)

The local time in the first zone at a point: an aware datetime, whose tzinfo is a zoneinfo.ZoneInfo.
None where there is no zone.

when: an aware datetime. None: now.

In names such as Etc/GMT+3 the sign is inverted: these are three hours behind UTC.

Raises ValueError for an invalid point, and for a datetime without an offset from UTC;
zoneinfo.ZoneInfoNotFoundError if the system has no table for the zone.)")
            .def("nearest_border", &Database::NearestBorder, "lat"_a, "lon"_a, py::kw_only(), limit,
                 R"(nearest_border(lat, lon, *, limit=inf)

The nearest place where the answer changes: a Border, or None if no border is within limit metres,
which saves time.

Raises ValueError for a coordinate that is not a number or outside of its range, and if the database
is not tiled.)")
            .def("zones_within", &Database::ZonesIn, "lat"_a, "lon"_a, "metres"_a,
                 R"(zones_within(lat, lon, metres)

The names of all zones that have a point within a distance, with the distances of their nearest
points in metres: a dict, the nearest first. Those of zones(lat, lon) have 0.

With the accuracy of a position it tells whether the answer is certain, and which others are
possible. Nautical zones count where there is sea.

Errors are those of nearest_border().)")
            .def("find_borders", &Database::FindBorders, "lats"_a, "lons"_a, py::kw_only(), limit,
                 threads, R"(find_borders(lats, lons, *, limit=inf, threads=1)

The nearest border of each point: a structured array of the shape of lats and lons, in C order, with
the fields of Border except zones. Instead it has zone, the id of the first zone beyond, and count,
their number.

zone is -2 (NO_ZONE) where there is no zone beyond, or no border within limit; -1 (INVALID_POINT)
where a coordinate is not a number or outside of its range; -3 (UNKNOWN) where the database is
damaged. Without a border all fields but holds are NaN.

limit: metres, a number or an array of the same shape.

Other arguments and errors are those of find(). Raises ValueError if the database is not tiled.)")
            .def("find_within", &Database::FindWithin, "lats"_a, "lons"_a, "metres"_a,
                 py::kw_only(), threads, R"(find_within(lats, lons, metres, *, threads=1)

All zones within a distance of each point: a tuple of three arrays of one dimension, offsets, values
and distances.

offsets and values are those of find_all(), with the nearest zones first. distances (float64) has
the metres to the nearest point of each zone. A point without a zone has the distance NaN.

metres: a number or an array of the same shape.

Other arguments and errors are those of find_borders().)")
            .def("zone_id", &Database::ZoneId, "name"_a, R"(zone_id(name)

The id of the zone with a name. Raises KeyError if there is none.)")
            .def_property_readonly("names", &Database::Names,
                                   R"(The names of all zones: a tuple, whose indexes are the ids.

numpy.array([*db.names, None, None])[ids] has the name for each id of an array, and None for the
negative ones, -1 and -2.)")
            .def_property_readonly("version", &Database::Version,
                                   "The version of the data, 0 to 255, which its maker counts on.")
            .def_property_readonly("notice", &Database::Notice,
                                   "Where the data comes from, and its licence.")
            .def_property_readonly("path", &Database::Path, "The absolute path of the file.")
            .def("close", &Database::Close, R"(close()

Closes the database. Calls that are at work on other threads finish.)")
            .def("__enter__", [](const py::object& self) { return self; })
            .def("__exit__", [](Database& self, const py::args&) { self.Close(); });
}
