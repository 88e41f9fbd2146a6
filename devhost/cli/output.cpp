#include "devhost/cli/output.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "devhost/cli/catalogue.h"
#include "devhost/cli/decode.h"
#include "devhost/cli/shown.h"

namespace host {

namespace {

std::string tableText(const Catalogued& entry, const std::vector<Row>& rows) {
    std::vector<Row> lines = {entry.fieldNames()};
    lines.insert(lines.end(), rows.begin(), rows.end());
    std::vector<size_t> widths(lines.front().size());
    for (Row& line : lines) {
        for (size_t column = 0; column < line.size(); ++column) {
            line[column] = shown(line[column]);
            widths[column] = std::max(widths[column], countCharacters(line[column]));
        }
    }
    std::string text;
    for (const Row& line : lines) {
        for (size_t column = 0; column < line.size(); ++column) {
            const std::string padding(widths[column] - countCharacters(line[column]), ' ');
            const bool left =
                entry.field(static_cast<int>(column)).type() == google::protobuf::FieldDescriptor::TYPE_STRING;
            text += fmt::format("{}{}{}", column == 0 ? "" : "  ", left ? line[column] : padding,
                                left ? padding : line[column]);
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

void printBatches(std::span<const Batch> batches, const std::string& alias, QosTlmEncodeType encoding,
                  const std::string& output, const OnFault& onFault) {
    const Catalogued* entry = findInCatalogue(alias);
    std::vector<Row> rows;
    for (const Batch& batch : batches) {
        try {
            if (output == "table") {
                if (entry == nullptr) {
                    throw std::runtime_error(fmt::format("the schema of {} is not in this program", alias));
                }
                std::ranges::move(decodeBatches(*entry, encoding, {&batch, 1}), std::back_inserter(rows));
            } else if (output == "json") {
                fmt::print("{}\n", (encoding == QOS_TLM_ENCODE_GPB ? gpbToJson : printableJson)(batch.payload));
            } else if (output == "hex") {
                fmt::print("{}", hexText(batch.payload));
            }
        } catch (const std::system_error&) {
            throw;
        } catch (const std::runtime_error& error) {
            onFault(batch, error.what());
        }
    }
    if (!rows.empty()) {
        fmt::print("{}", tableText(*entry, rows));
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
               pass.records(), pass.batches.size(), numbers, pass.bytes(), pass.encodeTime(), resultText(pass.result));
}

void flushOutput() {
    if (std::fflush(stdout) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot write the output");
    }
}

}  // namespace host
