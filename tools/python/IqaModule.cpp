// The Python module iqa: the iqa program's core with numpy arrays. Images are C-contiguous uint8
// arrays of shape (height, width, 3), SSIM maps float64 arrays of shape (rows, columns) of 8x8
// blocks. A missing file raises FileNotFoundError and any other input the program refuses
// ValueError, each with the reason the program prints; long calls release the GIL.
#include <android/log.h>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <variant>

#include "IqaProcessData.h"
#include "process/BoxReduce.h"
#include "tools/commands/CommandCores.h"
#include "tools/commands/Commands.h"
#include "tools/commands/LibraryLog.h"
#include "tools/commands/LogLines.h"
#include "tools/files/ImageFiles.h"
#include "tools/files/Nv12Image.h"

namespace py = pybind11;
namespace fs = std::filesystem;
using iqa_tools::Bytes;
using iqa_tools::Failure;
using iqa_tools::Image;

namespace {

using IQA::kPixelBufferSize;

// A file the call needs is not there: FileNotFoundError.
struct Missing : std::runtime_error {
    using std::runtime_error::runtime_error;
};

[[noreturn]] void Raise(const Failure& failure) {
    if (failure.missing) {
        throw Missing(failure.reason);
    }
    throw std::invalid_argument(failure.reason);
}

// An image array as the library takes it; anything else is refused, never converted.
Image ImageOf(const py::array& array, const char* what) {
    if (!py::isinstance<py::array_t<uint8_t>>(array) || array.ndim() != 3 || array.shape(2) != 3 ||
        !(array.flags() & py::array::c_style) || array.shape(0) < 1 || array.shape(1) < 1 ||
        array.shape(0) > INT32_MAX || array.shape(1) > INT32_MAX) {
        throw std::invalid_argument(std::string(what) +
                                    " must be a C-contiguous uint8 array of shape (height, "
                                    "width, 3)");
    }
    const auto* bytes = static_cast<const unsigned char*>(array.data());
    return Image{static_cast<int>(array.shape(1)), static_cast<int>(array.shape(0)),
                 Bytes(bytes, bytes + array.nbytes())};
}

py::array_t<uint8_t> ArrayOf(const unsigned char* rgb, int width, int height) {
    py::array_t<uint8_t> out({height, width, 3});
    std::copy_n(rgb, static_cast<size_t>(width) * static_cast<size_t>(height) * 3,
                out.mutable_data());
    return out;
}

py::array_t<uint8_t> ArrayOf(const Image& image) {
    return ArrayOf(image.rgb.data(), image.width, image.height);
}

py::array_t<double> MapOf(const std::vector<double>& blocks, int columns, int rows) {
    py::array_t<double> map({rows, columns});
    std::copy(blocks.begin(), blocks.end(), map.mutable_data());
    return map;
}

py::object Python(const nlohmann::ordered_json& j) {
    switch (j.type()) {
        case nlohmann::json::value_t::null:
            return py::none();
        case nlohmann::json::value_t::boolean:
            return py::bool_(j.get<bool>());
        case nlohmann::json::value_t::number_integer:
            return py::int_(j.get<int64_t>());
        case nlohmann::json::value_t::number_unsigned:
            return py::int_(j.get<uint64_t>());
        case nlohmann::json::value_t::number_float:
            return py::float_(j.get<double>());
        case nlohmann::json::value_t::string:
            return py::str(j.get<std::string>());
        case nlohmann::json::value_t::array: {
            py::list list;
            for (const auto& item : j) {
                list.append(Python(item));
            }
            return std::move(list);
        }
        default: {
            py::dict dict;
            for (const auto& [key, value] : j.items()) {
                dict[py::str(key)] = Python(value);
            }
            return std::move(dict);
        }
    }
}

// A folder of the call's own for images handed over as arrays, written as raw thumbnail files,
// the library's format for pixels that come from memory; removed with everything in it.
class Scratch {
  public:
    Scratch() {
        std::string pattern = (fs::temp_directory_path() / "iqa_py_XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("cannot make a temporary folder: " + iqa_tools::FileError());
        }
        dir_ = pattern;
    }
    ~Scratch() {
        std::error_code ignored;
        fs::remove_all(dir_, ignored);
    }
    std::string Put(const std::string& name, const Image& image) const {
        const std::string path = dir_ + "/" + name;
        if (!iqa_tools::WriteWholeFile(
                path, iqa_tools::ThumbnailFile(image.width, image.height, image.rgb))) {
            throw std::runtime_error("cannot write " + path + ": " + iqa_tools::FileError());
        }
        return path;
    }

  private:
    std::string dir_;
};

using PathOrArray = std::variant<std::string, py::array>;

// compare: the batch run's evaluation of one pair, either side a file or an array.
py::dict Compare(const PathOrArray& photo, const PathOrArray& thumbnail, int worst, bool heatmap) {
    Scratch scratch;
    const auto place = [&](const PathOrArray& side, const char* name) {
        return std::holds_alternative<std::string>(side)
                   ? std::get<std::string>(side)
                   : scratch.Put(name, ImageOf(std::get<py::array>(side), name));
    };
    const std::string photoPath = place(photo, "photo"), thumbPath = place(thumbnail, "thumbnail");
    iqa_tools::PairEvaluation e;
    nlohmann::ordered_json document;
    Image map;
    {
        py::gil_scoped_release released;
        Failure failure;
        const bool rawPhoto = std::holds_alternative<py::array>(photo);
        if (!iqa_tools::ComparePair(photoPath, thumbPath, rawPhoto, &e, &failure)) {
            Raise(failure);
        }
        document = iqa_tools::CompareDocument(photoPath, thumbPath, e,
                                              iqa_tools::WorstBlocks(e, std::max(0, worst)));
        if (heatmap) {
            map = iqa_tools::RenderHeatmap(e, iqa_tools::WorstBlocks(e, 5));
        }
    }
    py::dict result = Python(document);
    for (const auto& [key, side] : {std::pair{"photo", &photo}, {"thumbnail", &thumbnail}}) {
        if (std::holds_alternative<py::array>(*side)) {
            result[key] = py::none();
        }
    }
    result["blocks"]["ssim"] = MapOf(e.blocks, e.blocksX, e.blocksY);
    result["thumbnail_image"] = ArrayOf(e.thumbImage);
    result["photo_image"] = ArrayOf(e.photoImage);
    if (heatmap) {
        result["heatmap"] = ArrayOf(map);
    }
    return result;
}

// block_ssim: the SSIM stage on two images of one size, and every block's value.
py::tuple BlockSsim(const py::array& a, const py::array& b) {
    const Image first = ImageOf(a, "a"), second = ImageOf(b, "b");
    if (first.width != second.width || first.height != second.height) {
        throw std::invalid_argument("a and b must have the same shape");
    }
    iqa_tools::PairEvaluation e;
    {
        py::gil_scoped_release released;
        e = iqa_tools::EvaluateImages(first, second);
    }
    if (!e.ok) {
        throw std::invalid_argument(e.error);
    }
    return py::make_tuple(e.ssim, MapOf(e.blocks, e.blocksX, e.blocksY));
}

// read_thumbnail and decode: one of the library's decoders into a buffer of the batch run's
// capacity; its first error line is the reason of a failure.
py::array_t<uint8_t> Decoded(const std::string& path, int decoderType) {
    Bytes ignored;
    Failure failure;
    if (!iqa_tools::ReadInputFile(path, &ignored, &failure)) {
        Raise(failure);
    }
    const std::unique_ptr<unsigned char, decltype(&free)> buffer(
        static_cast<unsigned char*>(calloc(1, kPixelBufferSize)), free);
    int width = 0, height = 0;
    long long pixels = 0;
    {
        py::gil_scoped_release released;
        std::string error;
        const iqa_tools::LibraryLog capture([&](int priority, const char*, const char* message) {
            iqa_tools::LogLine line;
            if (priority >= ANDROID_LOG_ERROR && error.empty() &&
                iqa_tools::ParseLogLine(message, &line)) {
                error = line.operation + ": " + line.text;
            }
        });
        pixels = buffer == nullptr
                     ? 0
                     : IQA::IqaProcessData().Decoder({path, kPixelBufferSize, decoderType},
                                                     buffer.get(), &width, &height);
        if (pixels < 1 || width < 1 || height < 1) {
            throw std::invalid_argument(path + ": " + (error.empty() ? "no pixels" : error));
        }
    }
    return ArrayOf(buffer.get(), width, height);
}

void WriteThumbnail(const std::string& path, const py::array& array) {
    const Image image = ImageOf(array, "array");
    if (!iqa_tools::WriteWholeFile(
            path, iqa_tools::ThumbnailFile(image.width, image.height, image.rgb))) {
        Raise({"cannot write " + path + ": " + iqa_tools::FileError(), errno == ENOENT});
    }
}

void WriteImage(const std::string& path, const py::array& array) {
    iqa_tools::ImageFormat format;
    if (!iqa_tools::ImageFormatOf(path, &format)) {
        throw std::invalid_argument(path + ": an image name ends in .png, .jpg, .jpeg or .ppm");
    }
    if (!iqa_tools::WriteImage(path, ImageOf(array, "array"))) {
        Raise({"cannot write " + path + ": " + iqa_tools::FileError(), errno == ENOENT});
    }
}

// reduce: the library's box reduction, bounded to the array's rows.
py::array_t<uint8_t> Reduce(const py::array& array, int width, int height) {
    const Image image = ImageOf(array, "array");
    if (width < 1 || height < 1) {
        throw std::invalid_argument("width and height must be at least 1");
    }
    Bytes out(static_cast<size_t>(width) * static_cast<size_t>(height) * 3);
    {
        py::gil_scoped_release released;
        IQA::BoxReduce(image.rgb.data(), image.width, image.height, out.data(), width, height);
    }
    return ArrayOf(out.data(), width, height);
}

Bytes Input(const std::string& path) {
    Bytes bytes;
    Failure failure;
    if (!iqa_tools::ReadInputFile(path, &bytes, &failure)) {
        Raise(failure);
    }
    return bytes;
}

py::dict Inspect(const std::string& photo) {
    const Bytes file = Input(photo);
    iqa_tools::TrailerListing listing;
    iqa_tools::ReadTrailer(file, &listing);
    return Python(iqa_tools::InspectDocument(photo, listing));
}

py::array_t<uint8_t> Extract(const std::string& photo) {
    const Bytes file = Input(photo);
    Image preview;
    uint64_t at = 0;
    std::string why;
    if (!iqa_tools::NewestPreview(file, &preview, &at, &why)) {
        throw std::invalid_argument(photo + " " + why);
    }
    return ArrayOf(preview);
}

// The camera root as the working directory for a call, the old one back afterwards: the
// library's paths are relative to it, as they are to a camera host's.
class InCameraRoot {
  public:
    explicit InCameraRoot(const std::string& root) : previous_(fs::current_path()) {
        std::error_code error;
        if (!fs::is_directory(fs::path(root) / iqa_tools::kCameraFolder, error)) {
            Raise({root + " has no camera folder " + iqa_tools::kCameraFolder,
                   !fs::exists(root, error)});
        }
        fs::current_path(root);
    }
    ~InCameraRoot() {
        std::error_code ignored;
        fs::current_path(previous_, ignored);
    }

  private:
    fs::path previous_;
};

py::list Run(const std::string& root) {
    const InCameraRoot inside(root);
    std::vector<iqa_tools::PhotoResult> results;
    {
        py::gil_scoped_release released;
        Failure failure;
        if (!iqa_tools::RunCameraRoot(false, false, &results, &failure)) {
            Raise(failure);
        }
    }
    return Python(iqa_tools::ToJson(fs::current_path().string(), results)["photos"]);
}

py::dict Recover(const std::string& root) {
    const InCameraRoot inside(root);
    std::vector<std::string> lines;
    IQA::Recovery recovery;
    {
        py::gil_scoped_release released;
        recovery = iqa_tools::RecoverCameraRoot(&lines);
    }
    py::dict result;
    result["completed"] = recovery.completed;
    result["discarded"] = recovery.discarded;
    result["kept"] = recovery.kept;
    result["lines"] = lines;
    return result;
}

// scan: what `iqa scan --json` prints; with previews, each flagged photo's stored preview as
// "preview" (an image, or None when it cannot be read).
py::dict Scan(const std::string& dir, bool previews) {
    iqa_tools::FolderScan scan;
    {
        py::gil_scoped_release released;
        Failure failure;
        if (!iqa_tools::ScanFolder(dir, false, &scan, &failure)) {
            Raise(failure);
        }
    }
    py::dict result = Python(iqa_tools::ScanDocument(scan));
    for (size_t i = 0; previews && i < scan.photos.size(); ++i) {
        if (scan.photos[i].flagged) {
            Image preview;
            uint64_t at = 0;
            std::string why;
            const bool read = iqa_tools::StoredPreview(dir, scan.photos[i], &preview, &at, &why);
            result["photos"][py::int_(i)]["preview"] =
                read ? py::object(ArrayOf(preview)) : py::object(py::none());
        }
    }
    return result;
}

// anomaly: the detector on a YUV 4:2:0 frame of uint8 bytes, with what it would send.
py::dict Anomaly(const py::array& frame, unsigned width, unsigned height, int stride,
                 const std::string& name) {
    if (!py::isinstance<py::array_t<uint8_t>>(frame) || !(frame.flags() & py::array::c_style)) {
        throw std::invalid_argument("frame must be a C-contiguous uint8 array");
    }
    const auto* bytes = static_cast<const unsigned char*>(frame.data());
    const Bytes data(bytes, bytes + frame.nbytes());
    iqa_tools::AnomalyOutcome outcome;
    {
        py::gil_scoped_release released;
        Failure failure;
        if (!iqa_tools::DetectAnomaly(data, width, height, stride, name, "frame", &outcome,
                                      &failure)) {
            Raise(failure);
        }
    }
    py::dict result;
    result["outcome"] = outcome.lines;
    result["event"] = py::none();
    for (const auto& e : outcome.events) {
        py::dict event;
        event["event_id"] = e.eventId;
        event["timestamp"] = e.record.timestamp;
        event["name"] = std::string(e.record.jpegName);
        event["type"] = static_cast<int>(e.record.anomType);
        event["screen"] = e.record.anomType == 0 ? "green" : "black";
        result["event"] = event;
    }
    return result;
}

}  // namespace

PYBIND11_MODULE(iqa, m) {
    m.doc() =
        "The image-quality library from Python: compare photos with their raw thumbnails as the "
        "camera's batch run does, read and write camera files, inspect trailers, run and recover "
        "camera roots, detect black and green frames. Images are C-contiguous uint8 arrays of "
        "shape (height, width, 3); SSIM maps are float64 arrays of shape (rows, columns) of 8x8 "
        "blocks.";
    py::register_exception_translator([](std::exception_ptr thrown) {
        try {
            if (thrown) {
                std::rethrow_exception(thrown);
            }
        } catch (const Missing& e) {
            PyErr_SetString(PyExc_FileNotFoundError, e.what());
        }
    });
    m.def("compare", &Compare, py::arg("photo"), py::arg("thumbnail"), py::arg("worst") = 5,
          py::arg("heatmap") = false,
          "One photo (a JPEG file, or an image array) and its thumbnail (a raw thumbnail file, or "
          "an image array) as the batch run evaluates them, nothing written: the numbers of "
          "`iqa compare --json` (blocks.ssim as a map array, the `worst` lowest blocks with the "
          "pixels they read), the two images as the SSIM stage compared them and, with heatmap, "
          "the map drawn over the photo.");
    m.def("block_ssim", &BlockSsim, py::arg("a"), py::arg("b"),
          "The library's SSIM stage on two images of one shape: (ssim, map).");
    m.def(
        "read_thumbnail", [](const std::string& path) { return Decoded(path, 0); }, py::arg("path"),
        "A raw thumbnail file, decoded by the library.");
    m.def("write_thumbnail", &WriteThumbnail, py::arg("path"), py::arg("image"),
          "Writes an image as a raw thumbnail file.");
    m.def(
        "decode", [](const std::string& path) { return Decoded(path, 1); }, py::arg("photo"),
        "A JPEG photo decoded by the library.");
    m.def("reduce", &Reduce, py::arg("image"), py::arg("width"), py::arg("height"),
          "The library's box reduction of an image to width x height.");
    m.def("inspect", &Inspect, py::arg("photo"), "A photo's trailer, as `iqa inspect --json`.");
    m.def("extract", &Extract, py::arg("photo"),
          "The preview stored in the photo's newest Iqa_com record, as an image.");
    m.def("run", &Run, py::arg("root"),
          "A batch run over a camera root, as `iqa run --json`: the result of every photo.");
    m.def("recover", &Recover, py::arg("root"),
          "Completes or discards what a crash left of dumps under a camera root.");
    m.def("scan", &Scan, py::arg("dir"), py::arg("previews") = false,
          "Every JPEG under a folder pulled from a phone, as `iqa scan --json`: images, records, "
          "trailer state and a summary; with previews, each flagged photo's stored preview as "
          "an image under \"preview\".");
    m.def("anomaly", &Anomaly, py::arg("frame"), py::arg("width"), py::arg("height"),
          py::arg("stride"), py::arg("name"),
          "The black/green screen detector on a YUV 4:2:0 frame: its outcome lines and the "
          "big-data event it would send (or None).");
    m.def("write_image", &WriteImage, py::arg("path"), py::arg("image"),
          "Writes an image in the format its name ends in: .png, .jpg/.jpeg or .ppm.");
}
