#include "platform/linux/service/systemd.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-login.h>
#include <unistd.h>
#include <wx/log.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/scoped_fd.h"
#include "platform/service.h"

namespace {

constexpr const char* kManager = "org.freedesktop.systemd1";
constexpr const char* kManagerPath = "/org/freedesktop/systemd1";
constexpr const char* kManagerInterface = "org.freedesktop.systemd1.Manager";
// Open to root alone. Unlike the system's message bus it is there until the very end.
constexpr const char* kPrivateAddress = "unix:path=/run/systemd/private";
constexpr const char* kRuntimeUnits = "/run/systemd/system/";
constexpr const char* kDropInName = "/50-refuse-manual-stop.conf";
constexpr std::string_view kDropIn = "[Unit]\nRefuseManualStop=yes\n";
constexpr std::uint64_t kQuestionTimeout = 2'000'000;  // microseconds
constexpr std::uint64_t kReloadTimeout = 10'000'000;   // microseconds
constexpr mode_t kFolderMode = 0755;
constexpr mode_t kFileMode = 0644;

struct BusCloser {
    void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, BusCloser>;

struct Freer {
    void operator()(void* memory) const { std::free(memory); }
};
using CString = std::unique_ptr<char, Freer>;

// 0, or a negative error code.
int OpenPrivateBus(sd_bus** bus) {
    if (const int failure = sd_bus_new(bus); failure < 0) {
        return failure;
    }
    if (const int failure = sd_bus_set_address(*bus, kPrivateAddress); failure < 0) {
        return failure;
    }
    return sd_bus_start(*bus);
}

// A connection to the manager. Null with a positive code in `error`.
Bus OpenManager(std::uint64_t timeout, int& error) {
    sd_bus* opened = nullptr;
    const int result = geteuid() == 0 ? OpenPrivateBus(&opened) : sd_bus_open_system(&opened);
    Bus bus(opened);
    if (result < 0) {
        error = -result;
        return nullptr;
    }
    (void)sd_bus_set_method_call_timeout(bus.get(), timeout);
    return bus;
}

// A text property of a unit or the manager; empty if it cannot be had, with a positive code in
// `error`.
std::string Property(const char* path, const char* interface, const char* name, int& error) {
    const Bus bus = OpenManager(kQuestionTimeout, error);
    if (!bus) {
        return {};
    }
    char* value = nullptr;
    const int result =
        sd_bus_get_property_string(bus.get(), kManager, path, interface, name, nullptr, &value);
    const CString owned(value);
    if (result < 0) {
        error = -result;
        return {};
    }
    return value;
}

// Tells of a failed operation on the unit's drop-in. Always false.
bool Warn(const char* what, const std::string& file, int error) {
    wxLogWarning("%s %s: %s", wxString::FromUTF8(what), wxString::FromUTF8(file),
                 wxString::FromUTF8(std::strerror(error)));
    return false;
}

struct MessageCloser {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageCloser>;

// The object of a unit, also of one that does not run; empty if it cannot be had, with a positive
// code in `error`.
std::string UnitPath(sd_bus* bus, const std::string& unit, int& error) {
    sd_bus_message* answer = nullptr;
    const char* path = nullptr;
    int result = sd_bus_call_method(bus, kManager, kManagerPath, kManagerInterface, "LoadUnit",
                                    nullptr, &answer, "s", unit.c_str());
    const Message owned(answer);
    if (result >= 0) {
        result = sd_bus_message_read(answer, "o", &path);
    }
    if (result < 0) {
        error = -result;
        return {};
    }
    return path;
}

// The words of the first command; none if there is none.
int ReadFirstCommand(sd_bus_message* message, std::vector<std::string>& command) {
    const char* program = nullptr;
    char** words = nullptr;
    int result = sd_bus_message_enter_container(message, 'a', "(sasbttttuii)");
    if (result > 0) {
        result = sd_bus_message_enter_container(message, 'r', "sasbttttuii");
    }
    if (result > 0) {
        result = sd_bus_message_read(message, "s", &program);
    }
    if (result > 0) {
        result = sd_bus_message_read_strv(message, &words);
    }
    for (char** word = words; word != nullptr && *word != nullptr; ++word) {
        command.emplace_back(CString(*word).get());
    }
    std::free(words);
    return result;
}

void ReloadManager() {
    int error = 0;
    if (const Bus bus = OpenManager(kReloadTimeout, error)) {
        const int result = sd_bus_call_method(bus.get(), kManager, kManagerPath, kManagerInterface,
                                              "Reload", nullptr, nullptr, "");
        error = result < 0 ? -result : 0;
    }
    if (error != 0) {
        (void)Warn("Cannot reload", "systemd", error);
    }
}

}  // namespace

std::string OwnUnit() {
    char* unit = nullptr;
    const int result = sd_pid_get_unit(0, &unit);
    const CString owned(unit);
    return result < 0 ? std::string() : std::string(unit);
}

bool IsSystemGoingDown() {
    int error = 0;
    const std::string state = Property(kManagerPath, kManagerInterface, "SystemState", error);
    // A manager that has ceased to answer does so because it is on its way down.
    return state == "stopping" || error == ECONNREFUSED;
}

bool IsUnitDeactivating(const std::string& unit) {
    char* path = nullptr;
    if (unit.empty() ||
        sd_bus_path_encode("/org/freedesktop/systemd1/unit", unit.c_str(), &path) < 0) {
        return false;
    }
    const CString owned(path);
    int error = 0;
    return Property(path, "org.freedesktop.systemd1.Unit", "ActiveState", error) == "deactivating";
}

std::error_code ReadServiceCommand(const std::string& unit, std::vector<std::string>& command) {
    int error = 0;
    const Bus bus = OpenManager(kQuestionTimeout, error);
    const std::string path = bus ? UnitPath(bus.get(), unit, error) : std::string();
    if (path.empty()) {
        return {error, std::generic_category()};
    }
    sd_bus_message* answer = nullptr;
    int result =
        sd_bus_get_property(bus.get(), kManager, path.c_str(), "org.freedesktop.systemd1.Service",
                            "ExecStart", nullptr, &answer, "a(sasbttttuii)");
    const Message owned(answer);
    std::vector<std::string> words;
    if (result >= 0) {
        result = ReadFirstCommand(answer, words);
    }
    if (result < 0) {
        return {-result, std::generic_category()};
    }
    if (words.empty()) {
        return std::make_error_code(std::errc::no_such_file_or_directory);
    }
    command = std::move(words);
    return {};
}

UnitStopRefusal::UnitStopRefusal(std::string unit)
    : m_unit(geteuid() == 0 ? std::move(unit) : std::string()),
      m_folder(kRuntimeUnits + m_unit + ".d"),
      m_file(m_folder + kDropInName) {
}

void UnitStopRefusal::Set(bool refuse) const {
    const bool hasChanged = !m_unit.empty() && (refuse ? Install() : Remove());
    if (hasChanged && (refuse || !IsSystemGoingDown())) {
        ReloadManager();
    }
}

// True if something changed.
bool UnitStopRefusal::Install() const {
    if (mkdir(m_folder.c_str(), kFolderMode) != 0 && errno != EEXIST) {
        return Warn("Cannot make", m_folder, errno);
    }
    // One that was written by half has no effect, and the next one takes its place.
    const ScopedFd file(
        open(m_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, kFileMode));
    if (!file.IsOpen()) {
        return Warn("Cannot write", m_file, errno);
    }
    return write(file.Get(), kDropIn.data(), kDropIn.size()) ==
               static_cast<ssize_t>(kDropIn.size()) ||
           Warn("Cannot write", m_file, errno);
}

// True if something changed.
bool UnitStopRefusal::Remove() const {
    if (unlink(m_file.c_str()) != 0) {
        return errno != ENOENT && Warn("Cannot remove", m_file, errno);
    }
    (void)rmdir(m_folder.c_str());  // stays if somebody else has something there
    return true;
}
