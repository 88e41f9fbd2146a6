#include <fmt/format.h>
#include <fmt/ranges.h>

#include <nlohmann/json.hpp>

#include "devhost/cli/commands.h"
#include "devhost/sampling/catalogue.h"
#include "devhost/sampling/host.h"
#include "devhost/support/exit.h"
#include "devhost/support/shown.h"

namespace host {

namespace {

std::string thresholdText(const Catalogued& entry) {
    if (entry.conditionsOnly) {
        return "none";
    }
    return entry.notCompared.empty() ? "on every field"
                                     : fmt::format("on every field but {}", fmt::join(entry.notCompared, " and "));
}

void printText(const std::vector<Path>& paths) {
    for (const Path& path : paths) {
        fmt::print("{}\n  xpath        {}\n", shown(path.alias), shown(path.xpath));
        const Catalogued* entry = findInCatalogue(path.alias);
        if (entry == nullptr) {
            fmt::print("  not in this program's schema\n");
            continue;
        }
        const char* heading = "fields";
        for (int index = 0; index < entry->fieldCount(); ++index) {
            const auto& field = entry->field(index);
            fmt::print("  {:<11}{:>3} {} {}\n", heading, field.number(), field.json_name(), field.type_name());
            heading = "";
        }
        heading = "conditions";
        for (const Condition& condition : entry->conditions) {
            fmt::print("  {:<12} {}: {}\n", heading, condition.field, condition.takes);
            heading = "";
        }
        fmt::print("  thresholds   {}\n", thresholdText(*entry));
        fmt::print("  batch limit  {} records\n", entry->batchLimit);
    }
}

// One path per line, so that line tools can read it as well.
void printJson(const std::vector<Path>& paths) {
    const char* before = "[\n";
    for (const Path& path : paths) {
        nlohmann::ordered_json item = {{"alias", validUtf8(path.alias)}, {"xpath", validUtf8(path.xpath)}};
        if (const Catalogued* entry = findInCatalogue(path.alias)) {
            auto& fields = item["fields"] = nlohmann::ordered_json::array();
            for (int index = 0; index < entry->fieldCount(); ++index) {
                const auto& field = entry->field(index);
                fields.push_back(
                    {{"number", field.number()}, {"name", field.json_name()}, {"type", field.type_name()}});
            }
            auto& keys = item["keys"] = nlohmann::ordered_json::array();
            for (const int key : entry->keys) {
                keys.push_back(entry->field(key).json_name());
            }
            item["conditions"] = entry->conditionNames();
            item["thresholds"] = entry->thresholdNames();
            item["batch-limit"] = entry->batchLimit;
        }
        fmt::print("{}  {}", before, item.dump(-1, ' ', true));
        before = ",\n";
    }
    fmt::print("\n]\n");
}

}  // namespace

int runPaths(const PathsOptions& options, const std::string& pluginFile) {
    const Host plugin(pluginFile);
    (options.json ? printJson : printText)(plugin.paths());
    return kDone;
}

}  // namespace host
