#include "zelka_core/archive/entry_writer.h"

#include <utility>

namespace ZelkaCore {

namespace {

// Bytes: a file of this size is held in memory.
constexpr std::uint64_t kSmallFile = 0x40000;

std::optional<unsigned> PermissionsOf(const ZipEntry& entry) {
    const unsigned own = entry.Permissions();
    return own == 0 ? std::nullopt : std::optional(own);
}

}  // namespace

void EntryWriter::Progress() const {
    if (m_progress != nullptr) {
        m_progress();
    }
}

bool EntryWriter::Write(const ZipEntry& entry, const std::string& path, const std::string& place,
                        std::string& reason) {
    Result& result = m_results.emplace_back();  // stays where it is
    result.place = place;
    std::string fault;
    const auto error = entry.size <= kSmallFile ? WriteSmall(entry, path, result, fault)
                                                : WriteLarge(entry, path, result, fault);
    if (error && fault.empty()) {
        fault = "cannot be written: " + error.message();
    }
    if (fault.empty()) {
        return true;
    }
    m_writer.DropFile();
    m_results.pop_back();
    reason = std::move(fault);
    return false;
}

std::error_code EntryWriter::WriteSmall(const ZipEntry& entry, const std::string& path,
                                        Result& result, std::string& reason) {
    std::string content;
    content.reserve(entry.size);
    const auto sink = [&](std::string_view bytes) {
        content += bytes;
        return true;
    };
    Progress();
    if (!m_archive.Read(entry, sink, reason)) {
        return {};
    }
    TreeWriter::Witness witness;
    if (m_observer != nullptr) {
        witness = [&result](std::string_view bytes) { result.sum = Sha256Of(bytes); };
    }
    return m_writer.AddFile(path, std::move(content), PermissionsOf(entry), std::move(witness),
                            &result.mode);
}

std::error_code EntryWriter::WriteLarge(const ZipEntry& entry, const std::string& path,
                                        Result& result, std::string& reason) {
    TreeWriter::Witness witness;
    if (m_observer != nullptr) {
        m_sum.emplace();
        witness = [this](std::string_view bytes) { m_sum->Add(bytes); };
    }
    std::error_code error = m_writer.BeginFile(path, std::move(witness));
    const auto sink = [&](std::string_view bytes) {
        Progress();
        return m_writer.WriteFile(bytes);
    };
    if (!error && (m_archive.Read(entry, sink, reason) || reason.empty())) {
        error = m_writer.FinishFile(PermissionsOf(entry), &result.mode);
    }
    if (!error && reason.empty() && m_sum) {
        result.sum = m_sum->Finish();
    }
    return error;
}

std::error_code EntryWriter::Commit(std::string& failedPath) {
    const auto error = m_writer.Commit(failedPath);
    if (!error && m_observer != nullptr) {
        for (const Result& result : m_results) {
            m_observer->OnFile(result.place, result.sum, result.mode);
        }
    }
    m_results.clear();
    return error;
}

}  // namespace ZelkaCore
