#include <cstdio>
#include <limits>
#include <memory>

#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/output.h"
#include "apps/zelkctl/run_chunk.h"
#include "platform/file.h"

namespace {

struct Arguments {
    std::string chunk;
    std::string file;
};

std::string StandardInput() {
    std::string text;
    char block[65'536];
    while (const std::size_t size = std::fread(block, 1, sizeof block, stdin)) {
        text.append(block, size);
    }
    if (std::ferror(stdin) != 0) {
        throw CommandError("standard input cannot be read");
    }
    return text;
}

std::string ContentOf(const std::string& path) {
    ScopedFd file;
    std::string content;
    auto error = OpenRegularFile(path, file);
    if (!error) {
        error = ReadAtMost(file, ZelkaCore::VarlinkReader::kLimit, content);
    }
    if (error) {
        throw CommandError(path + ": " + error.message());
    }
    return content;
}

Chunk ChunkOf(const Arguments& given) {
    if (given.chunk.empty() == given.file.empty()) {
        throw CommandError("run takes a chunk, '-' or --file FILE", ExitCode::kUsage);
    }
    if (!given.file.empty()) {
        return {ContentOf(given.file), given.file, false};
    }
    return given.chunk == "-" ? Chunk{StandardInput(), "stdin", false}
                              : Chunk{given.chunk, {}, false};
}

void RunRun(const Options& options, const Arguments& given) {
    const Chunk chunk = ChunkOf(given);
    Agent agent(options.workdir);
    if (RunChunk(agent, chunk, options.isJson) != ChunkEnd::kDone) {
        throw QuietFailure();
    }
}

}  // namespace

void AddRunCommand(CLI::App& app, const Options& options) {
    auto* command = app.add_subcommand("run", "Runs Lua text in the agent, and prints its values");
    auto given = std::make_shared<Arguments>();
    command->add_option("CHUNK", given->chunk, "the text, or '-' for standard input")
        ->type_name("");
    command->add_option("--file", given->file, "a file that holds the text")->type_name("FILE");
    command->callback([&options, given] { RunRun(options, *given); });
}
