#include "apps/zelkctl/run_chunk.h"

#include <cstdio>
#include <optional>
#include <utility>
#include <vector>

#include "apps/zelkctl/output.h"
#include "apps/zelkctl/reply.h"

namespace {

using ZelkaCore::Json;

void Check(const std::error_code& error) {
    if (error) {
        throw CommandError("the wait for the agent: " + error.message());
    }
}

// The next reply; none if Ctrl-C comes before it.
std::optional<Agent::Reply> NextOrInterrupt(Agent& agent, const Interrupts& interrupts) {
    Poller poller;
    Check(poller.Open());
    for (;;) {
        if (auto reply = agent.Next(Poller::Clock::now())) {
            return reply;
        }
        if (Poller::IsReady(interrupts.Descriptor(), Poller::kReadable)) {
            interrupts.Clear();
            return std::nullopt;
        }
        std::optional<Poller::Clock::time_point> deadline;
        if (!agent.HasReplied()) {
            deadline = Poller::Clock::now() + Agent::kPatience;
        }
        std::vector<Poller::Ready> ready;
        Check(poller.Arm(agent.Descriptor(), Poller::kReadable));
        Check(poller.Arm(interrupts.Descriptor(), Poller::kReadable));
        Check(poller.Wait(deadline, ready));
        if (ready.empty()) {
            agent.CheckThatItAnswers();
        }
    }
}

// Shows the replies of one chunk.
class Teller {
  public:
    Teller(bool isJson, bool isInteractive) : m_isJson(isJson), m_isInteractive(isInteractive) {}

    // The end, if the reply is the last one.
    std::optional<ChunkEnd> Tell(const Agent& agent, const Agent::Reply& reply) {
        const std::string kind = agent.Text(reply.parameters, "kind");
        if (kind == "incomplete" && m_isInteractive) {
            return ChunkEnd::kIncomplete;
        }
        if (m_isJson) {
            PrintJson(reply.parameters);
        } else {
            TellInWords(kind, RawMember(reply.parameters, "text"), reply.isLast);
        }
        FlushOutput();
        if (!reply.isLast) {
            return std::nullopt;
        }
        return kind == "result" ? ChunkEnd::kDone : ChunkEnd::kFailed;
    }

  private:
    void TellInWords(const std::string& kind, const std::string& text, bool isLast) {
        if (kind == "output") {
            Print(ShownLines(text));
            m_isInLine = text.empty() ? m_isInLine : !text.ends_with('\n');
        } else if (kind == "busy") {
            ::Tell("the application keeps it waiting: " + Shown(text));
        } else if (kind == "result") {
            if (!text.empty() || m_isInteractive) {
                BeginLine();
            }
            if (!text.empty()) {
                PrintLine(ShownLines(text));
            }
        } else if (isLast) {
            BeginLine();
            FlushOutput();
            (void)std::fprintf(stderr, "%s\n", ShownLines(text).c_str());
        }
    }

    void BeginLine() {
        if (std::exchange(m_isInLine, false)) {
            Print("\n");
        }
    }

    bool m_isJson;
    bool m_isInteractive;
    bool m_isInLine = false;  // what was printed has no line's end yet
};

}  // namespace

ChunkEnd RunChunk(Agent& agent, const Chunk& chunk, bool isJson, const Interrupts* interrupts) {
    Json parameters{{"chunk", chunk.text}};
    if (!chunk.name.empty()) {
        parameters["name"] = chunk.name;
    }
    if (chunk.isInteractive) {
        parameters["interactive"] = true;
    }
    agent.Start("Run", parameters);
    Teller teller(isJson, chunk.isInteractive);
    for (;;) {
        const auto reply = interrupts == nullptr ? std::optional(agent.NextWhenever())
                                                 : NextOrInterrupt(agent, *interrupts);
        if (!reply) {
            return ChunkEnd::kInterrupted;
        }
        if (const auto end = teller.Tell(agent, *reply)) {
            return *end;
        }
    }
}
