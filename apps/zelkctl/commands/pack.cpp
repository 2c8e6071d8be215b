#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string_view>

#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/output.h"
#include "apps/zelkctl/package_file_name.h"
#include "apps/zelkctl/package_source.h"
#include "apps/zelkctl/reply.h"

namespace {

// The years that an archive can tell.
constexpr std::time_t kFirstTime = 315'532'800;   // 1980-01-01
constexpr std::time_t kLastTime = 4'354'819'198;  // 2107-12-31

struct Arguments {
    std::string folder;
    std::string file;
};

// The time of all that is packed: no file's own, or no two packages would be the same.
std::time_t TimeOfEntries() {
    const char* variable = std::getenv("SOURCE_DATE_EPOCH");
    if (variable == nullptr) {
        return kFirstTime;
    }
    const std::string_view text = variable;
    std::time_t time = 0;
    const auto [end, error] = std::from_chars(text.begin(), text.end(), time);
    if (error != std::errc() || end != text.end() || time < 0) {
        throw CommandError("SOURCE_DATE_EPOCH is no number of seconds: " + Shown(text));
    }
    return std::min(std::max(time, kFirstTime), kLastTime);
}

void RunPack(const Options& options, const Arguments& given) {
    const PackageSource source(given.folder);
    const auto& manifest = source.Manifest();
    const std::string file =
        given.file.empty() ? PackageFileName("Feature", manifest.name, manifest.version, ".zkp")
                           : given.file;
    if (source.Holds(file)) {
        throw CommandError(Shown(file) + ": lies in the folder that is packed; see -o",
                           ExitCode::kUsage);
    }
    // Times in an archive are local.
    (void)setenv("TZ", "UTC0", 1);
    tzset();
    ArchiveWriter archive(file, ArchiveWriter::Kind::kPackage);
    source.AddTo(archive, TimeOfEntries());
    archive.Finish();
    if (options.isJson) {
        PrintJson(ZelkaCore::Json{{"file", file},
                                  {"name", manifest.name},
                                  {"version", manifest.version},
                                  {"files", source.FileCount()}});
    } else {
        PrintLine(Shown(file) + " is written: " + manifest.name + " " + manifest.version +
                  ", files: " + std::to_string(source.FileCount()) + ".");
    }
}

}  // namespace

void AddPackCommand(CLI::App& app, const Options& options) {
    auto* command = app.add_subcommand("pack", "Makes a plug-in package of a folder");
    auto given = std::make_shared<Arguments>();
    command->add_option("FOLDER", given->folder, "the folder, with zelka_package.ini in it")
        ->required();
    command
        ->add_option("-o,--output", given->file,
                     "the package; Feature-NAME-VERSION.zkp in the current folder without it")
        ->type_name("FILE");
    command->callback([&options, given] { RunPack(options, *given); });
}
