// The run's results as JSON, CSV and a console table.
#include "tools/commands/RunResults.h"

#include <cstdio>

#include "tools/commands/Terminal.h"

namespace iqa_tools {

namespace {

nlohmann::ordered_json SizeJson(const Size& s) {
    return s.width > 0 ? nlohmann::ordered_json{{"width", s.width}, {"height", s.height}}
                       : nlohmann::ordered_json(nullptr);
}

Size SizeOf(const nlohmann::ordered_json& j) {
    return j.is_object() ? Size{j.at("width").get<int>(), j.at("height").get<int>()} : Size{};
}

nlohmann::ordered_json TextOrNull(const std::string& text) {
    return text.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(text);
}

std::string Text(const nlohmann::ordered_json& j) {
    return j.is_string() ? j.get<std::string>() : "";
}

std::string SizeText(const Size& s) {
    return s.width > 0 ? std::to_string(s.width) + "x" + std::to_string(s.height) : "-";
}

std::string CsvSize(const Size& s) {
    return s.width > 0 ? SizeText(s) : "";
}

std::string CsvField(const std::string& s) {
    if (s.find_first_of(",\"\n") == std::string::npos) {
        return s;
    }
    std::string quoted = "\"";
    for (char c : s) {
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    }
    return quoted + "\"";
}

}  // namespace

std::string SsimText(const PhotoResult& p) {
    char text[32] = "-";
    if (p.scored) {
        snprintf(text, sizeof(text), "%.6f", p.ssim);  // as the library logs it
    }
    return text;
}

std::string RecordText(const PhotoResult& p) {
    if (p.record == "inserted") {
        return "inserted (+" + std::to_string(p.recordBytes) + " bytes)";
    }
    return p.record == "none" ? "-" : p.record;
}

nlohmann::ordered_json ToJson(const std::string& cameraRoot,
                              const std::vector<PhotoResult>& photos) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const PhotoResult& p : photos) {
        list.push_back(
            {{"name", p.name},
             {"verdict", p.verdict},
             {"problem", TextOrNull(p.problem)},
             {"ssim", p.scored ? nlohmann::ordered_json(p.ssim) : nlohmann::ordered_json(nullptr)},
             {"thumbnail", SizeJson(p.thumbnail)},
             {"photo", SizeJson(p.photo)},
             {"compared", SizeJson(p.compared)},
             {"record", p.record},
             {"record_bytes", p.recordBytes},
             {"record_problem", TextOrNull(p.recordProblem)}});
    }
    return {{"camera_root", cameraRoot}, {"photos", list}};
}

bool FromJson(const nlohmann::ordered_json& document, std::vector<PhotoResult>* photos) {
    try {
        for (const nlohmann::ordered_json& j : document.at("photos")) {
            PhotoResult p;
            p.name = j.at("name").get<std::string>();
            p.verdict = j.at("verdict").get<std::string>();
            p.problem = Text(j.at("problem"));
            p.scored = j.at("ssim").is_number();
            p.ssim = p.scored ? j.at("ssim").get<double>() : 0.0;
            p.thumbnail = SizeOf(j.at("thumbnail"));
            p.photo = SizeOf(j.at("photo"));
            p.compared = SizeOf(j.at("compared"));
            p.record = j.at("record").get<std::string>();
            p.recordBytes = j.at("record_bytes").get<uint64_t>();
            p.recordProblem = Text(j.at("record_problem"));
            photos->push_back(p);
        }
        return true;
    } catch (const nlohmann::ordered_json::exception&) {
        return false;
    }
}

std::string ToCsv(const std::vector<PhotoResult>& photos) {
    std::string csv =
        "photo,thumbnail,photo_size,compared,ssim,verdict,problem,record,record_bytes,"
        "record_problem\n";
    for (const PhotoResult& p : photos) {
        csv += CsvField(p.name) + "," + CsvSize(p.thumbnail) + "," + CsvSize(p.photo) + "," +
               CsvSize(p.compared) + "," + (p.scored ? SsimText(p) : "") + "," +
               CsvField(p.verdict) + "," + CsvField(p.problem) + "," + p.record + "," +
               std::to_string(p.recordBytes) + "," + CsvField(p.recordProblem) + "\n";
    }
    return csv;
}

std::string ToTable(const std::vector<PhotoResult>& photos) {
    std::vector<std::vector<std::string>> rows = {
        {"photo", "compared", "ssim", "verdict", "record", "why"}};
    for (const PhotoResult& p : photos) {
        rows.push_back({p.name, SizeText(p.compared), SsimText(p), p.verdict, RecordText(p),
                        p.problem.empty() ? p.recordProblem : p.problem});
    }
    return FormatTable(rows);
}

}  // namespace iqa_tools
