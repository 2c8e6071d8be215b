#include "apps/zelkctl/agent.h"
#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/reply.h"
#include "apps/zelkctl/stacks_text.h"
#include "apps/zelkctl/table.h"

namespace {

void RunTasks(const Options& options) {
    Agent agent(options.workdir);
    const auto reply = agent.Call("ListTasks");
    const auto& tasks = agent.Part(reply, "threads");
    if (options.isJson) {
        PrintJson(reply);
        return;
    }
    Table table({"TASK", "STATE", "WAITS FOR", "SINCE", "PLACE"});
    for (const auto& task : tasks) {
        table.Add({MemberText(task, "name"), MemberText(task, "state"),
                   MemberText(task, "waits_for"), MemberDuration(task, "since_ms"),
                   MemberText(task, "place")});
    }
    Print(table.Take());
    TellLeftOut(reply);
}

}  // namespace

void AddTasksCommand(CLI::App& app, const Options& options) {
    app.add_subcommand("tasks", "Each task: its state, what it waits for, and since when")
        ->callback([&options] { RunTasks(options); });
}
