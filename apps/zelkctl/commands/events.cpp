#include <memory>
#include <optional>

#include "apps/zelkctl/agent.h"
#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/events_on_disk.h"
#include "apps/zelkctl/events_table.h"
#include "apps/zelkctl/reply.h"

namespace {

using ZelkaCore::Json;

struct Arguments {
    bool follows = false;
    std::optional<std::int64_t> after;
};

Json ParametersOf(const Arguments& given) {
    Json parameters = Json::object();
    if (given.after) {
        parameters["after"] = *given.after;
    }
    if (given.follows) {
        parameters["follow"] = true;
    }
    return parameters;
}

// All events behind a certain one: the agent tells them part by part.
Json EventsAfter(Agent& agent, Arguments given) {
    Json all = Json::array();
    for (;;) {
        const Json reply = agent.Call("ListEvents", ParametersOf(given));
        const Json& events = agent.Part(reply, "events");
        const auto last = events.empty() ? std::nullopt : MemberNumber(events.back(), "id");
        all.insert(all.end(), events.begin(), events.end());
        if (!last || *last <= *given.after) {
            return Json{{"events", std::move(all)}};
        }
        given.after = last;
    }
}

Json WithoutAgent(const Options& options, const Arguments& given, const std::string& reason) {
    try {
        Json reply = EventsOnDisk(options.workdir, given.after);
        Tell(reason + "; these are the events in its database");
        return reply;
    } catch (const CommandError& error) {
        throw CommandError(reason + "; " + error.what(), error.Code());
    }
}

Json ListEvents(const Options& options, const Arguments& given) {
    try {
        Agent agent(options.workdir);
        Json reply =
            given.after ? EventsAfter(agent, given) : agent.Call("ListEvents", ParametersOf(given));
        (void)agent.Part(reply, "events");
        return reply;
    } catch (const CommandError& error) {
        if (error.Code() != ExitCode::kNoAgent) {
            throw;
        }
        return WithoutAgent(options, given, error.what());
    }
}

void PrintEvents(const Options& options, const Json& reply, Table& table) {
    if (options.isJson) {
        PrintJson(reply);
    } else {
        AddEvents(MemberPart(reply, "events"), table);
        Print(table.Take());
    }
    FlushOutput();
}

void RunEvents(const Options& options, const Arguments& given) {
    Table table = EventsTable();
    if (!given.follows) {
        PrintEvents(options, ListEvents(options, given), table);
        return;
    }
    Agent agent(options.workdir);
    agent.Start("ListEvents", ParametersOf(given));
    for (bool isOver = false; !isOver;) {
        const Agent::Reply reply = agent.NextWhenever();
        (void)agent.Part(reply.parameters, "events");
        PrintEvents(options, reply.parameters, table);
        isOver = reply.isLast;
    }
}

}  // namespace

void AddEventsCommand(CLI::App& app, const Options& options) {
    auto* command = app.add_subcommand("events", "The last agent events, also without an agent");
    auto given = std::make_shared<Arguments>();
    command->add_flag("-f,--follow", given->follows, "go on with those that come, until Ctrl-C");
    command->add_option("--after", given->after, "those behind that one")->type_name("ID");
    command->callback([&options, given] { RunEvents(options, *given); });
}
