// The points of numpy arrays, block by block.
//
// Only numpy's Python functions and the buffer protocol are used. So the module works with any
// version of numpy, and imports numpy when the first array comes.
#pragma once

#include <pybind11/pybind11.h>

#include <algorithm>
#include <cstddef>
#include <future>
#include <vector>

#include "library/column.h"

namespace offlinetz {

// The memory of an array. Made and destroyed with the GIL held.
class Buffer {
  public:
    // `flags`: PyBUF_STRIDES to read, PyBUF_WRITABLE to write a contiguous array. Throws what the
    // array raises.
    Buffer(const pybind11::handle& array, int flags) {
        if (PyObject_GetBuffer(array.ptr(), &mView, flags) != 0)
            throw pybind11::error_already_set();
    }
    ~Buffer() { PyBuffer_Release(&mView); }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    template <typename T>
    T* Data() const {
        return static_cast<T*>(mView.buf);
    }
    // Of an array of one dimension. Strides are in bytes.
    size_t Count() const { return static_cast<size_t>(mView.shape[0]); }
    ptrdiff_t Stride() const { return mView.strides[0]; }

  private:
    Py_buffer mView;
};

// Some points that follow each other.
struct PointBlock {
    size_t begin;  // The number of the first one in the arrays.
    size_t count;
    Column<const double> lats;  // Degrees.
    Column<const double> lons;
    Column<const double> metres;  // A distance for each point.

    PointBlock Part(size_t from, size_t to) const {
        const auto part = [from](const Column<const double>& column) {
            const void* const first = column.At(from);
            return Column<const double>{static_cast<const double*>(first), column.stride};
        };
        return {begin + from, to - from, part(lats), part(lons), part(metres)};
    }
};

class PointArrays {
  public:
    // Takes arrays, or what numpy.asarray makes arrays of. `metres` may also be one number for all
    // points. Throws TypeError if they hold no real numbers, and ValueError if their shapes differ.
    PointArrays(const pybind11::object& lats, const pybind11::object& lons,
                const pybind11::object& metres = pybind11::float_(0.0))
        : mLats(NumbersOf("lats", lats)),
          mLons(NumbersOf("lons", lons)),
          mMetres(NumbersOf("metres", metres)) {
        RequireShape("lons", mLons);
        if (mMetres.attr("ndim").cast<int>() > 0) RequireShape("metres", mMetres);
    }

    pybind11::object Shape() const { return mLats.attr("shape"); }
    size_t Count() const { return mLats.attr("size").cast<size_t>(); }

    // Makes an array in C order, not initialised. `shape`: a number or a tuple. `type`: what numpy
    // makes a dtype of.
    template <typename Shape, typename Type>
    pybind11::object NewArray(const Shape& shape, const Type& type) const {
        return mNumpy.attr("empty")(shape, type);
    }

    // Calls take(block), without the GIL, for the points in C order. A column of doubles is passed
    // as it lies in memory. Other arrays are converted to doubles, a block of 65,536 points for
    // each of `threads` at a time. Between blocks a signal, such as that of Ctrl-C, may end the
    // work with its exception.
    template <typename Take>
    void ForEachBlock(int threads, const Take& take) const {
        using namespace pybind11::literals;
        const auto three = [](const auto& all) { return pybind11::make_tuple(all, all, all); };
        const pybind11::object blocks = mNumpy.attr("nditer")(
                pybind11::make_tuple(mLats, mLons, mMetres), "order"_a = "C",
                "casting"_a = kCasting,
                "flags"_a = pybind11::make_tuple("external_loop", "buffered", "zerosize_ok"),
                "op_flags"_a = three(pybind11::make_tuple("readonly")),
                "op_dtypes"_a = three(kType),
                "buffersize"_a = 65536 * std::min(threads, kMostThreads));
        size_t begin = 0;
        for (const pybind11::handle block : blocks) {
            const Buffer lats(block[pybind11::int_(0)], PyBUF_STRIDES);
            const Buffer lons(block[pybind11::int_(1)], PyBUF_STRIDES);
            const Buffer metres(block[pybind11::int_(2)], PyBUF_STRIDES);
            {
                const pybind11::gil_scoped_release release;
                take(PointBlock{begin, lats.Count(), ColumnOf(lats), ColumnOf(lons),
                                ColumnOf(metres)});
            }
            begin += lats.Count();
            if (PyErr_CheckSignals() != 0) throw pybind11::error_already_set();
        }
    }

  private:
    static constexpr int kMostThreads = 256;  // That get a whole block each.
    static constexpr const char* kType = "float64";
    static constexpr const char* kCasting = "same_kind";

    static Column<const double> ColumnOf(const Buffer& buffer) {
        return {buffer.Data<double>(), buffer.Stride()};
    }

    void RequireShape(const char* name, const pybind11::object& array) const {
        if (Shape().equal(array.attr("shape"))) return;
        throw pybind11::value_error(pybind11::str("lats and {} differ in shape: {} and {}")
                                            .format(name, Shape(), array.attr("shape")));
    }

    pybind11::object NumbersOf(const char* name, const pybind11::object& values) const {
        pybind11::object array = mNumpy.attr("asarray")(values);
        const pybind11::object type = array.attr("dtype");
        if (!mNumpy.attr("can_cast")(type, kType, kCasting).cast<bool>()) {
            throw pybind11::type_error(
                    pybind11::str("{} has no real numbers but the type {}").format(name, type));
        }
        return array;
    }

    const pybind11::module_ mNumpy = pybind11::module_::import("numpy");
    const pybind11::object mLats;
    const pybind11::object mLons;
    const pybind11::object mMetres;
};

// The number of parts into which `threads` threads divide a block. A thread takes longer to start
// than to look up few points.
inline size_t PartCount(const PointBlock& block, int threads) {
    constexpr size_t kFewPoints = 4096;
    return std::clamp(block.count / kFewPoints, size_t{1}, static_cast<size_t>(threads));
}

// Calls work(part, number) for PartCount parts of a block, each on a thread of its own, and waits
// for all. The parts are numbered from 0, in the order of the points. If the system starts no
// further thread, the calling one does the work (so does std::async of libstdc++).
template <typename Work>
void ForEachPart(const PointBlock& block, int threads, const Work& work) {
    const size_t parts = PartCount(block, threads);
    const auto part = [&](size_t number) {
        work(block.Part(block.count * number / parts, block.count * (number + 1) / parts), number);
    };
    std::vector<std::future<void>> others;
    for (size_t number = 1; number < parts; ++number)
        others.push_back(std::async(part, number));
    part(0);
    for (std::future<void>& other : others)
        other.get();
}

}  // namespace offlinetz
