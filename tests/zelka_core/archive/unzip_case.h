#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <wx/filename.h>
#include <wx/zipstrm.h>

#include <filesystem>
#include <functional>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/captured_log.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/zip_builder.h"
#include "zelka_core/archive/unzip.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

// An archive and its target folder, side by side in a folder that an escaping entry would be seen
// in.
class Unzip : public testing::Test {
  protected:
    Unzip() { fs::create_directory(m_target); }

    using Answer = std::function<bool(const wxZipEntry&)>;

    bool Run(const std::string& archive, Answer answer = nullptr) {
        m_asked.clear();
        m_answer = std::move(answer);
        const wxFileName file(FromUtf8(m_scratch.Write("a.zkp", archive).string()));
        std::string fault;
        const bool isFit = CheckUnzip(file, m_targetName, m_options, fault);
        const CapturedLog log;
        const bool succeeded = ZelkaCore::Unzip(file, m_targetName, &Ask, this, m_options);
        m_messages = log.Text();
        EXPECT_TRUE(m_answer || isFit == succeeded) << fault;
        return succeeded;
    }

    // What lies below the target folder: paths in any order.
    [[nodiscard]] std::vector<std::string> Tree() const {
        std::vector<std::string> paths;
        for (const auto& entry : fs::recursive_directory_iterator(m_target)) {
            paths.push_back(entry.path().lexically_relative(m_target).string());
        }
        return paths;
    }

    // That the package is refused before anything happened, in the target folder or beside it.
    void ExpectRefused(const std::string& archive, const std::string& reason) {
        EXPECT_FALSE(Run(archive)) << reason;
        EXPECT_THAT(m_messages, testing::ContainsRegex("a.zkp: .*" + reason));
        EXPECT_THAT(m_asked, testing::IsEmpty());
        EXPECT_THAT(Tree(), testing::IsEmpty());
        EXPECT_EQ(std::distance(fs::directory_iterator(m_scratch.Path()), {}), 2);
    }

    const ScratchFolder m_scratch;
    const fs::path m_target = m_scratch.Path() / "bin";
    const wxFileName m_targetName{FromUtf8(m_target.string()), wxString()};
    std::vector<std::string> m_asked;
    std::string m_messages;
    UnzipOptions m_options;

  private:
    static bool Ask(void* userData, const wxZipEntry* entry, const wxString* target) {
        auto& self = *static_cast<Unzip*>(userData);
        self.m_asked.push_back(ToUtf8(entry->GetInternalName()));
        EXPECT_EQ(ToUtf8(*target),
                  (self.m_target / self.m_asked.back()).lexically_normal().string());
        return !self.m_answer || self.m_answer(*entry);
    }

    Answer m_answer;
};

}  // namespace ZelkaCore
