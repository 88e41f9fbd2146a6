#include "bench/peers.h"

#include <cjson/cJSON.h>
#include <google/protobuf/arena.h>
#include <pb_encode.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <vexlor_qos.pb.h>

#include <cstring>
#include <protozero/pbf_writer.hpp>
#include <string>

#include "bench/floor.h"
#include "bench/nanopb/vexlor_qos.pb.h"
#include "bench/tables.h"

namespace bench::peers {

namespace {

using View = view::queue_stat;

void send(const SampleBuffer& sample, size_t count, size_t length) {
    sample->collectStartTime = readCollectTime();
    sample->collectEndTime = sample->collectStartTime;
    sample->recordCount = static_cast<uint32_t>(count);
    sample->dataLen = static_cast<uint32_t>(length);
    sample.upload();
}

void send(const SampleBuffer& sample, size_t count, const char* text, size_t length) {
    if (memcpy_s(sample->data, sizeof sample->data, text, length) != 0) {
        fail("a sample does not fit");
    }
    send(sample, count, length);
}

// The numbers of a row with their JSON names.
template <class Each>
void forEachNumber(const View& row, Each&& each) {
    each("service-class", row.queueId);
    each("pass-packets", row.passPackets);
    each("pass-bytes", row.passBytes);
    each("pass-packet-rate", row.passPktRate);
    each("pass-byte-rate", row.passBytRate);
    each("discard-packets", row.dropPackets);
    each("discard-bytes", row.dropBytes);
    each("discard-packet-rate", row.dropPktRate);
    each("discard-byte-rate", row.dropBytRate);
}

}  // namespace

void protobuf() {
    static char block[256 * 1024];
    const SampleBuffer sample;
    google::protobuf::Arena arena(block, sizeof block);
    auto* message = google::protobuf::Arena::CreateMessage<vexlor_qos::Sample>(&arena);
    auto* list = message->mutable_global_query()->mutable_queue_statisticss();
    walk<View>([&](const View& row) {
        auto* entry = list->add_queue_statistics();
        entry->set_interface_name(row.ifName);
        entry->set_service_class(row.queueId);
        entry->set_pass_packets(row.passPackets);
        entry->set_pass_bytes(row.passBytes);
        entry->set_pass_packet_rate(row.passPktRate);
        entry->set_pass_byte_rate(row.passBytRate);
        entry->set_discard_packets(row.dropPackets);
        entry->set_discard_bytes(row.dropBytes);
        entry->set_discard_packet_rate(row.dropPktRate);
        entry->set_discard_byte_rate(row.dropBytRate);
    });
    if (!message->SerializeToArray(sample->data, sizeof sample->data)) {
        fail("a sample does not fit");
    }
    send(sample, static_cast<size_t>(list->queue_statistics_size()), static_cast<size_t>(message->GetCachedSize()));
}

void protozero() {
    static std::string text;
    const SampleBuffer sample;
    text.clear();
    size_t count = 0;
    {
        ::protozero::pbf_writer top(text);
        ::protozero::pbf_writer query(top, 5);
        ::protozero::pbf_writer list(query, 13);
        walk<View>([&](const View& row) {
            ::protozero::pbf_writer entry(list, 1);
            entry.add_string(1, row.ifName);
            ::protozero::pbf_tag_type field = 2;
            forEachNumber(row, [&](const char*, uint64_t value) { entry.add_uint64(field++, value); });
            ++count;
        });
    }
    send(sample, count, text.data(), text.size());
}

void nanopb() {
    static vexlor_qos_Sample message;
    const SampleBuffer sample;
    message.has_global_query = true;
    message.global_query.has_queue_statisticss = true;
    auto& list = message.global_query.queue_statisticss;
    list.queue_statistics_count = 0;
    walk<View>([&](const View& row) {
        auto& entry = list.queue_statistics[list.queue_statistics_count++];
        if (strcpy_s(entry.interface_name, sizeof entry.interface_name, row.ifName) != 0) {
            fail("a name does not fit");
        }
        entry.service_class = row.queueId;
        entry.pass_packets = row.passPackets;
        entry.pass_bytes = row.passBytes;
        entry.pass_packet_rate = row.passPktRate;
        entry.pass_byte_rate = row.passBytRate;
        entry.discard_packets = row.dropPackets;
        entry.discard_bytes = row.dropBytes;
        entry.discard_packet_rate = row.dropPktRate;
        entry.discard_byte_rate = row.dropBytRate;
    });
    pb_ostream_t stream = pb_ostream_from_buffer(sample->data, sizeof sample->data);
    if (!pb_encode(&stream, vexlor_qos_Sample_fields, &message)) {
        fail("nanopb cannot encode");
    }
    send(sample, list.queue_statistics_count, stream.bytes_written);
}

void rapidJson() {
    static rapidjson::StringBuffer text;
    const SampleBuffer sample;
    text.Clear();
    size_t count = 0;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    for (const char* name : {"qos", "global-query", "queue-statisticss"}) {
        writer.StartObject();
        writer.Key(name);
    }
    writer.StartObject();
    writer.Key("queue-statistics");
    writer.StartArray();
    walk<View>([&](const View& row) {
        writer.StartObject();
        writer.Key("interface-name");
        writer.String(row.ifName);
        forEachNumber(row, [&](const char* name, uint64_t value) {
            writer.Key(name);
            writer.Uint64(value);
        });
        writer.EndObject();
        ++count;
    });
    writer.EndArray();
    for (int level = 0; level < 4; ++level) {
        writer.EndObject();
    }
    send(sample, count, text.GetString(), text.GetSize());
}

void cJson() {
    const SampleBuffer sample;
    cJSON* document = cJSON_CreateObject();
    cJSON* query = cJSON_AddObjectToObject(cJSON_AddObjectToObject(document, "qos"), "global-query");
    cJSON* list = cJSON_AddArrayToObject(cJSON_AddObjectToObject(query, "queue-statisticss"), "queue-statistics");
    size_t count = 0;
    walk<View>([&](const View& row) {
        cJSON* entry = cJSON_CreateObject();
        cJSON_AddItemToArray(list, entry);
        cJSON_AddStringToObject(entry, "interface-name", row.ifName);
        forEachNumber(row, [&](const char* name, uint64_t value) {
            cJSON_AddNumberToObject(entry, name, static_cast<double>(value));
        });
        ++count;
    });
    char* text = cJSON_PrintUnformatted(document);
    if (text == nullptr) {
        fail("cJSON cannot print");
    }
    send(sample, count, text, strlen(text));
    cJSON_free(text);
    cJSON_Delete(document);
}

}  // namespace bench::peers
