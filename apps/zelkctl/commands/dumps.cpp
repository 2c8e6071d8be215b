// `zelkctl dumps`: the crash dumps of a working folder, newest first.

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/output.h"
#include "apps/zelkctl/reply.h"
#include "platform/file.h"
#include "platform/folder_tree.h"
#include "zelka_core/system/crash_report.h"
#include "zelka_core/varlink/json.h"

using ZelkaCore::CrashReport;
using ZelkaCore::Json;

namespace {

namespace fs = std::filesystem;

struct Dump {
    std::string file;
    std::int64_t size = 0;      // bytes
    std::int64_t modified = 0;  // nanoseconds since 1970; a new dump replaces the older one
    CrashReport report;
    std::string fault;  // why there is no report
};

std::string UtcTime(std::int64_t seconds) {
    const std::time_t time = seconds;
    std::tm utc{};
    (void)gmtime_r(&time, &utc);
    std::array<char, sizeof "2026-01-31T12:00:00Z"> text{};
    (void)std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text.data();
}

Dump ReadDump(const fs::path& path) {
    Dump dump;
    dump.file = path.string();
    FileStream file;
    if (const auto error = OpenRegularStream(dump.file, file)) {
        dump.fault = error.message();
        return dump;
    }
    const FileVersion version = VersionOf(file.get());
    dump.size = version.size;
    dump.modified = version.modified;
    (void)ZelkaCore::ReadCrashReport(file.get(), dump.report, dump.fault);
    return dump;
}

std::vector<Dump> ReadDumps(const std::string& workdir) {
    if (!fs::is_directory(workdir)) {
        throw CommandError("'" + workdir + "' is no folder that this user may read");
    }
    std::vector<Dump> dumps;
    const fs::path folder = fs::path(workdir) / "plugins/diag";
    if (fs::exists(folder)) {
        for (const auto& entry : fs::directory_iterator(folder)) {
            if (entry.path().extension() == ".mdmp") {
                dumps.push_back(ReadDump(entry.path()));
            }
        }
    }
    std::sort(dumps.begin(), dumps.end(), [](const Dump& one, const Dump& other) {
        return one.modified != other.modified ? one.modified > other.modified
                                              : one.file < other.file;
    });
    return dumps;
}

std::string Place(const CrashReport& report) {
    std::array<char, 24> offset{};
    (void)std::snprintf(offset.data(), offset.size(), "+0x%llx",
                        static_cast<unsigned long long>(report.offset));
    return report.module + offset.data();
}

Json ToJson(const Dump& dump) {
    Json json{{"file", dump.file}, {"size_bytes", dump.size}};
    if (!dump.fault.empty()) {
        json["error"] = dump.fault;
        return json;
    }
    const CrashReport& report = dump.report;
    json["time"] = report.time * 1000;
    json["application"] = report.application;
    json["signal"] = report.signal;
    json["signal_name"] = report.signalName;
    json["fault"] = report.fault;
    json["pid"] = report.process;
    json["thread"] = report.thread;
    if (!report.module.empty()) {
        json["module"] = report.module;
        json["offset"] = report.offset;
    }
    if (!report.lua.empty()) {
        json["lua"] = report.lua;
    }
    return json;
}

void PrintIndented(const std::string& lines) {
    for (std::size_t begin = 0; begin < lines.size();) {
        const std::size_t end = std::min(lines.find('\n', begin), lines.size());
        PrintLine("  " + Shown(lines.substr(begin, end - begin)));
        begin = end + 1;
    }
}

void Print(const Dump& dump) {
    if (!dump.fault.empty()) {
        return PrintLine(Shown(dump.file + ": " + dump.fault));
    }
    const CrashReport& report = dump.report;
    PrintLine(Shown(UtcTime(report.time) + " " + report.application + " " + report.signalName +
                    " " + std::to_string(dump.size) + " bytes " + dump.file));
    PrintIndented(report.fault);
    if (!report.module.empty()) {
        PrintLine(
            Shown("  process " + std::to_string(report.process) + " was at " + Place(report)));
    }
    PrintIndented(report.lua);
}

void ShowDumps(const Options& options) {
    const std::vector<Dump> dumps = ReadDumps(options.workdir);
    if (options.isJson) {
        Json list = Json::array();
        std::transform(dumps.begin(), dumps.end(), std::back_inserter(list), ToJson);
        PrintJson(Json{{"dumps", std::move(list)}});
        return;
    }
    for (const Dump& dump : dumps) {
        Print(dump);
    }
}

}  // namespace

void AddDumpsCommand(CLI::App& app, const Options& options) {
    app.add_subcommand("dumps", "The crash dumps, and which Lua code ran; the newest first")
        ->callback([&options] { ShowDumps(options); });
}
