#include "devhost/cli/output.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "devhost/sampling/catalogue.h"
#include "devhost/sampling/decode.h"
#include "devhost/support/exit.h"
#include "devhost/support/shown.h"

namespace host {

namespace {

// What a line of the output holds; none where the output is no terminal.
std::optional<size_t> terminalWidth() {
    if (isatty(STDOUT_FILENO) == 0) {
        return std::nullopt;
    }
    size_t columns = 0;
    if (const char* told = std::getenv("COLUMNS")) {
        std::from_chars(told, told + std::string_view(told).size(), columns);
    }
    if (winsize size = {}; columns == 0 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) {
        columns = size.ws_col;
    }
    return columns != 0 ? std::optional(columns) : std::nullopt;
}

struct Column {
    int field;
    size_t width = 0;
    std::string before = {};  // what separates it from the previous one: on a terminal that is too narrow, a line feed
};

// The columns of these names, or all without names; a path may lack some.
std::vector<Column> columnsOf(const Catalogued& entry, const std::vector<std::string>& names) {
    std::vector<Column> columns;
    const std::vector<std::string> fields = entry.fieldNames();
    for (const std::string& name : names.empty() ? fields : names) {
        if (const auto field = std::ranges::find(fields, name); field != fields.end()) {
            columns.push_back({static_cast<int>(field - fields.begin())});
        }
    }
    return columns;
}

void separate(std::vector<Column>& columns) {
    const size_t room = terminalWidth().value_or(std::numeric_limits<size_t>::max());
    size_t used = 0;
    for (Column& column : columns) {
        column.before = used == 0 ? "" : used + 2 + column.width <= room ? "  " : "\n    ";
        used = column.before.starts_with('\n') ? 4 : used + column.before.size();
        used += column.width;
    }
}

std::string tableText(const Catalogued& entry, const std::vector<std::string>& names, const std::vector<Row>& rows) {
    std::vector<Column> columns = columnsOf(entry, names);
    if (columns.empty()) {
        return {};
    }
    std::vector<Row> lines;
    const auto addLine = [&](const Row& row) {
        Row& line = lines.emplace_back();
        for (Column& column : columns) {
            line.push_back(shown(row[static_cast<size_t>(column.field)]));
            column.width = std::max(column.width, countCharacters(line.back()));
        }
    };
    addLine(entry.fieldNames());
    std::ranges::for_each(rows, addLine);
    separate(columns);
    std::string text;
    for (const Row& line : lines) {
        for (size_t index = 0; index < columns.size(); ++index) {
            const Column& column = columns[index];
            const std::string padding(column.width - countCharacters(line[index]), ' ');
            const bool left = entry.field(column.field).type() == google::protobuf::FieldDescriptor::TYPE_STRING;
            text += column.before + (left ? line[index] + padding : padding + line[index]);
        }
        text += '\n';
    }
    return text;
}

std::string hexText(std::string_view payload) {
    constexpr size_t kLine = 16;
    std::string text;
    for (size_t offset = 0; offset < payload.size(); offset += kLine) {
        std::string shown(payload.substr(offset, kLine));
        text += fmt::format("{:08x} ", offset);
        for (size_t index = 0; index < kLine; ++index) {
            text += index == kLine / 2 ? "  " : " ";
            text += index < shown.size() ? fmt::format("{:02x}", static_cast<unsigned char>(shown[index])) : "  ";
        }
        std::replace_if(
            shown.begin(), shown.end(), [](char each) { return each < ' ' || each > '~'; }, '.');
        text += fmt::format("  |{}|\n", shown);
    }
    return text + fmt::format("{:08x}\n", payload.size());
}

}  // namespace

void requireColumns(const Form& form, const std::string& whose, const std::vector<std::string>& fields) {
    if (!form.columns.empty() && form.output != "table") {
        throw UsageError(fmt::format("--columns are those of --output table, here it is {}", form.output));
    }
    for (const std::string& name : form.columns) {
        if (std::ranges::find(fields, name) == fields.end()) {
            throw UsageError(
                fmt::format("--columns: {} is named '{}'; it may be {}", whose, name, fmt::join(fields, ", ")));
        }
    }
}

void printBatches(std::span<const Batch> batches, const std::string& alias, QosTlmEncodeType encoding, const Form& form,
                  const OnFault& onFault) {
    const Catalogued* entry = findInCatalogue(alias);
    std::vector<Row> rows;
    for (const Batch& batch : batches) {
        try {
            if (form.output == "table") {
                if (entry == nullptr) {
                    throw std::runtime_error(fmt::format("the schema of {} is not in this program", alias));
                }
                std::ranges::move(decodeBatches(*entry, encoding, {&batch, 1}), std::back_inserter(rows));
            } else if (form.output == "json") {
                fmt::print("{}\n", (encoding == QOS_TLM_ENCODE_GPB ? gpbToJson : printableJson)(batch.payload));
            } else if (form.output == "hex") {
                fmt::print("{}", hexText(batch.payload));
            }
        } catch (const std::system_error&) {
            throw;
        } catch (const std::runtime_error& error) {
            onFault(batch, error.what());
        }
    }
    if (!rows.empty()) {
        fmt::print("{}", tableText(*entry, form.columns, rows));
    }
}

std::string resultText(uint32_t result) {
    return fmt::format("{} ({})", result,
                       result == QOS_TLM_RESULT_DONE   ? "done"
                       : result == QOS_TLM_RESULT_MORE ? "stopped"
                                                       : "failed");
}

void printSummary(uint64_t number, const Pass& pass) {
    const std::string numbers = pass.batches.empty()       ? "none"
                                : pass.batches.size() == 1 ? std::to_string(pass.batches.front().hostArg2)
                                                           : fmt::format("{} to {}", pass.batches.front().hostArg2,
                                                                         pass.batches.back().hostArg2);
    fmt::print("pass {}: records {}, batches {}, numbers {}, bytes {}, encoding time {} us, result {}\n", number,
               pass.records, pass.batches.size(), numbers, pass.bytes, pass.encodeTime, resultText(pass.result));
}

void flushOutput() {
    if (std::fflush(stdout) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot write the output");
    }
}

}  // namespace host
