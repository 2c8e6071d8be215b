#include "platform/error.h"

#include <cerrno>
#include <string>

namespace {

class PlatformCategory : public std::error_category {
  public:
    [[nodiscard]] const char* name() const noexcept override { return "platform"; }

    [[nodiscard]] std::string message(int code) const override {
        switch (static_cast<PlatformError>(code)) {
            case PlatformError::kNotRegularFile:
                return "it is not a regular file";
            case PlatformError::kNeitherFolderNorFile:
                return "neither a folder nor a regular file";
            case PlatformError::kNotToBeStopped:
                return "not a process that may be stopped";
            case PlatformError::kStillThere:
                return "it is still there after being killed";
            case PlatformError::kLeavesFolder:
                return "a symbolic link leads out of the folder";
            case PlatformError::kReservedPlace:
                return "the place is reserved";
            case PlatformError::kReplaced:
                return "something else has the name now";
            case PlatformError::kOwnedByOthers:
                return "it belongs to somebody other than root and this user";
            case PlatformError::kOpenToOthers:
                return "others than its owner can write to it";
            case PlatformError::kNoServiceManager:
                return "no service manager started this process";
        }
        return "Unknown error " + std::to_string(code);
    }
};

}  // namespace

std::error_code make_error_code(PlatformError error) {
    static const PlatformCategory category;
    return {static_cast<int>(error), category};
}

std::error_code LastSystemError() {
    return {errno, std::generic_category()};
}
