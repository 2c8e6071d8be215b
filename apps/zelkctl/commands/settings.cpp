#include <memory>
#include <vector>

#include "apps/zelkctl/agent.h"
#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/reply.h"
#include "apps/zelkctl/table.h"

namespace {

using ZelkaCore::Json;

struct Arguments {
    std::string name;
    std::string value;
    std::vector<std::string> names;
};

void ListSettings(const Options& options) {
    Agent agent(options.workdir);
    const Json reply = agent.Call("ListSettings");
    const Json& settings = agent.Part(reply, "settings");
    if (options.isJson) {
        PrintJson(reply);
        return;
    }
    Table table({"SETTING", "VALUE"});
    for (const auto& setting : settings) {
        table.Add({MemberText(setting, "name"), MemberText(setting, "value")});
    }
    Print(table.Take());
}

void GetSetting(const Options& options, const std::string& name) {
    Agent agent(options.workdir);
    const Json reply = agent.Call("GetSetting", Json{{"name", name}});
    const std::string value = agent.Text(reply, "value");
    if (options.isJson) {
        PrintJson(reply);
    } else {
        PrintLine(ShownLines(value));
    }
}

void StoreSetting(const Options& options, const Arguments& given) {
    const Json reply =
        Agent(options.workdir)
            .Call("StoreSetting", Json{{"name", given.name}, {"value", given.value}});
    if (options.isJson) {
        PrintJson(reply);
    }
}

void RemoveSettings(const Options& options, const std::vector<std::string>& names) {
    Agent agent(options.workdir);
    Json reply;
    for (const std::string& name : names) {
        reply = agent.Call("RemoveSetting", Json{{"name", name}});
    }
    if (options.isJson) {
        PrintJson(reply);
    }
}

}  // namespace

void AddSettingsCommand(CLI::App& app, const Options& options) {
    auto* settings =
        app.add_subcommand("settings", "The persisted settings: shows and changes them");
    settings->require_subcommand(0, 1);
    auto given = std::make_shared<Arguments>();
    auto* get = settings->add_subcommand("get", "Prints the value of one");
    get->add_option("NAME", given->name, "the setting")->type_name("")->required();
    get->callback([&options, given] { GetSetting(options, given->name); });
    auto* set = settings->add_subcommand("set", "Stores a value");
    set->add_option("NAME", given->name, "the setting")->type_name("")->required();
    set->add_option("VALUE", given->value, "its value from now on")->type_name("")->required();
    set->callback([&options, given] { StoreSetting(options, *given); });
    auto* remove = settings->add_subcommand("rm", "Removes settings, be they there or not");
    remove->add_option("NAME", given->names, "the settings")->type_name("")->required();
    remove->callback([&options, given] { RemoveSettings(options, given->names); });
    settings->callback([&options, settings] {
        if (settings->get_subcommands().empty()) {
            ListSettings(options);
        }
    });
}
