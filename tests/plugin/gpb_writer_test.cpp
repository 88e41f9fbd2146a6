// The GPB writer.
#include "nivex_qos/gpb.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/unknown_field_set.h>

#include "support/plugin.h"

namespace {

class GpbWriterTest : public PluginTest {};

// A destination with more bytes behind its room, which must stay as they are.
class Destination {
  public:
    explicit Destination(uint32_t room) : room_(room), bytes_(room + 32, 0xEE) {}
    ~Destination() {
        for (size_t i = room_; i < bytes_.size(); ++i) {
            EXPECT_EQ(bytes_[i], 0xEE) << "written " << i - room_ << " bytes behind the room of " << room_;
        }
    }
    uint8_t* data() { return bytes_.data(); }
    std::string text(uint32_t count) const { return hex(bytes_.data(), count); }

  private:
    uint32_t room_;
    std::vector<uint8_t> bytes_;
};

TEST_F(GpbWriterTest, VarintsAtEverySizeBoundary) {
    std::vector<uint64_t> values{0, ~0ull};
    for (int bit = 0; bit < 64; ++bit) {
        values.insert(values.end(), {(1ull << bit) - 1, 1ull << bit, (1ull << bit) + 1});
    }
    for (const uint64_t value : values) {
        SCOPED_TRACE(value);
        const uint32_t size = CALL(QOS_TLM_CalcProtoIntSize)(value);
        EXPECT_EQ(size, google::protobuf::io::CodedOutputStream::VarintSize64(value));
        for (uint32_t room = 0; room <= size; ++room) {
            Destination dest(room);
            ASSERT_EQ(CALL(QOS_TLM_WrapProtoInteger)(value, dest.data(), room), room < size ? 0 : size);
            google::protobuf::io::CodedInputStream input(dest.data(), static_cast<int>(size));
            uint64_t read = 0;
            EXPECT_TRUE(room < size || (input.ReadVarint64(&read) && read == value &&
                                        input.CurrentPosition() == static_cast<int>(size)));
        }
    }
    EXPECT_EQ(fake::takeLog().at(0), encodeLine(5, 0, 174));
}

TEST_F(GpbWriterTest, TagsAndSizes) {
    using Case = std::tuple<uint32_t, uint32_t, const char*>;
    for (const auto& [number, wireType, bytes] :
         {Case{1, 0, "08"}, Case{15, 2, "7A"}, Case{16, 0, "80 01"}, Case{16, 2, "82 01"}, Case{73, 2, "CA 04"},
          Case{2047, 0, "F8 7F"}, Case{2048, 0, "80 80 01"}, Case{(1u << 29) - 1, 2, "FA FF FF FF 0F"},
          Case{1u << 29, 2, "02"}}) {  // computed in 32 bits
        SCOPED_TRACE(number);
        Destination dest(8);
        const uint32_t size = CALL(QOS_TLM_WrapProtoType)(number, wireType, dest.data(), 8);
        EXPECT_EQ(dest.text(size), bytes);
        EXPECT_EQ(CALL(QOS_TLM_GetProtoIntegerSize)(number, 0), size + 1);
        EXPECT_EQ(CALL(QOS_TLM_GetProtoIntegerSize)(number, ~0ull), size + 10);
        for (const auto sizeOf : {CALL(QOS_TLM_GetProtoStringSize), CALL(QOS_TLM_GetProtoStructSize)}) {
            EXPECT_EQ(sizeOf(number, 0), size + 1);
            EXPECT_EQ(sizeOf(number, 128), size + 2 + 128);
        }
    }
    Destination dest(16);
    QosTlmNodeData leaf{"unknown type", 4, 1, 5, 4};
    for (const QosTlmNodeData* none : {&leaf, static_cast<QosTlmNodeData*>(nullptr)}) {
        EXPECT_EQ(CALL(QOS_TLM_CalcProtoSizeLeafnode)(none), 0u);
        EXPECT_EQ(CALL(QOS_TLM_WrapProtoNodeLeaf)(none, dest.data(), 16), 0u);
    }
    leaf = {"no text", QOS_TLM_VALUE_STRING, 1, 0, 5};
    EXPECT_EQ(CALL(QOS_TLM_CalcProtoSizeLeafnode)(&leaf), 2u);
    EXPECT_EQ(CALL(QOS_TLM_WrapProtoNodeLeaf)(&leaf, dest.data(), 16), 0u);
    EXPECT_EQ(CALL(QOS_TLM_WrapProtoType)(16, QOS_TLM_WIRE_LEN, dest.data(), 1), 0u);
    EXPECT_LOG(encodeLine(6, 14, 228), encodeLine(5, 1, 174));
    leaf = {"shorter than it says", QOS_TLM_VALUE_STRING, 1, reinterpret_cast<uintptr_t>("ab"), 2};
    EXPECT_EQ(CALL(QOS_TLM_CalcProtoSizeLeafnode)(&leaf), 4u) << "of the text";
    EXPECT_EQ(dest.text(CALL(QOS_TLM_WrapProtoNodeLeaf)(&leaf, dest.data(), 16)), "0A 01 61");
}

std::string encoded(const Tree& top, uint32_t estimate) {
    EXPECT_EQ(CALL(QOS_TLM_EstimatePackageSizeProto)(top.get()), estimate);
    uint32_t length = 99;
    const Block block(CALL(QOS_TLM_EncodeProto)(top.get(), &length));
    EXPECT_EQ(block == nullptr, length == 99);
    return block == nullptr ? "none" : hex(block.get(), length);
}

Tree smallTree() {
    Tree top = makeTree("global-query", 5);
    QosTlmNode* entry = addNode(addNode(top.get(), "queue-statisticss", 13), "queue-statistics", 1, 2);
    CALL(QOS_TLM_AddChildUint32)(entry, "service-class", 3, 2);
    return top;
}

TEST_F(GpbWriterTest, GoldenBytes) {
    EXPECT_EQ(encoded(smallTree(), 8), "2A 06 6A 04 0A 02 10 03");
    {
        const Tree top = makeTree("top", 5);
        CALL(QOS_TLM_AddChildUint32)(top.get(), "n", 0, 2);
        CALL(QOS_TLM_AddChildUint64)(top.get(), "n", ~0ull, 3);
        CALL(QOS_TLM_AddChildString)(top.get(), "n", "ab", 1);
        CALL(QOS_TLM_AddChildString)(top.get(), "n", "", 1);
        CALL(QOS_TLM_AddChildBool)(top.get(), "n", 1, 3);
        CALL(QOS_TLM_AddChildBool)(top.get(), "n", 5, 16);
        CALL(QOS_TLM_AddChildUint32)(top.get(), "n", 0xFFFFFFFF, 2);
        EXPECT_EQ(encoded(top, 32),
                  "2A 1E 10 00 18 FF FF FF FF FF FF FF FF FF 01 0A 02 61 62 0A 00 18 01 80 01 05 10 FF FF FF FF 0F");
    }
    {
        const Tree top = makeTree("top", 16, 1);
        for (const uint32_t value : {1u, 2u}) {
            CALL(QOS_TLM_AddChildUint32)(addNode(top.get(), "entry", 1, 2), "n", value, 2);
        }
        EXPECT_EQ(encoded(top, 11), "82 01 08 0A 02 10 01 0A 02 10 02");
    }
    const Tree top = makeTree("global-query", 5);
    EXPECT_EQ(encoded(top, 2), "");
    addNode(top.get(), "queue-statisticss", 13);
    EXPECT_EQ(encoded(top, 4), "2A 00") << "the empty list is left out";
    CALL(QOS_TLM_AddChildUint32)(top.get(), "n", 1, 2);
    EXPECT_EQ(encoded(top, 6), "2A 02 10 01");
    EXPECT_EQ(encoded(nullptr, 0), "none");
    EXPECT_LOG(encodeLine(4, 0, 284));
}

TEST_F(GpbWriterTest, TooLittleRoomIsLogged) {
    const auto integer = [](uint8_t* d, uint32_t r) { return CALL(QOS_TLM_WrapProtoNodeInteger)(16, 300, d, r); };
    const auto text = [](uint8_t* d, uint32_t r) { return CALL(QOS_TLM_WrapProtoNodeString)(16, "abc", 3, d, r); };
    using Case = std::tuple<uint32_t (*)(uint8_t*, uint32_t), uint32_t, std::vector<std::string>>;
    const Case cases[] = {
        {integer, 0, {encodeLine(5, 1, 174), encodeLine(4, 16, 195)}},
        {integer, 1, {encodeLine(5, 1, 174), encodeLine(4, 16, 195)}},
        {integer, 2, {encodeLine(5, 2, 174), encodeLine(4, 16, 200)}},
        {integer, 3, {encodeLine(5, 2, 174), encodeLine(4, 16, 200)}},
        {text, 0, {encodeLine(5, 1, 174), encodeLine(4, 16, 211)}},
        {text, 1, {encodeLine(5, 1, 174), encodeLine(4, 16, 211)}},
        {text, 2, {encodeLine(5, 3, 174), encodeLine(4, 3, 217)}},
        {text, 3, {encodeLine(6, 0, 228)}},
        {text, 4, {encodeLine(6, 1, 228)}},
        {text, 5, {encodeLine(6, 2, 228)}},
    };
    for (const auto& [write, room, log] : cases) {
        SCOPED_TRACE(room);
        reload();
        Destination dest(room);
        EXPECT_EQ(write(dest.data(), room), 0u);
        EXPECT_EQ(fake::takeLog(), log);
    }
    Destination dest(6);
    EXPECT_EQ(integer(dest.data(), 6), 4u);
    EXPECT_EQ(text(dest.data(), 6), 6u);
}

// Whatever does not fit, what is written is a message that a decoder takes.
TEST_F(GpbWriterTest, TooLittleRoomLeavesAWellFormedMessage) {
    const Tree top = makeTree("top", 5);
    CALL(QOS_TLM_AddChildUint64)(top.get(), "n", ~0ull, 3);
    QosTlmNode* inner = addNode(top.get(), "inner", 13);
    CALL(QOS_TLM_AddChildString)(inner, "t", "twelve bytes", 1);
    CALL(QOS_TLM_AddChildUint32)(addNode(inner, "entry", 1, 2), "n", 300, 2);
    CALL(QOS_TLM_AddChildUint32)(top.get(), "n", 7, 2);
    const uint32_t full = CALL(QOS_TLM_EstimatePackageSizeProto)(top.get());
    const auto expectMessage = [](const void* bytes, uint32_t length) {
        google::protobuf::UnknownFieldSet fields;
        google::protobuf::UnknownFieldSet content;
        EXPECT_TRUE(fields.ParseFromArray(bytes, static_cast<int>(length))) << hex(bytes, length);
        EXPECT_EQ(fields.field_count(), length == 0 ? 0 : 1);
        EXPECT_TRUE(fields.empty() || content.ParseFromString(fields.field(0).length_delimited()));
    };
    for (uint32_t room = 0; room <= full + 2; ++room) {
        SCOPED_TRACE(room);
        Destination dest(room);
        const uint32_t written = CALL(QOS_TLM_WrapProtoNodeStruct)(5, top->firstChild, dest.data(), room);
        EXPECT_TRUE(room < full ? written <= room : written == full) << written;
        expectMessage(dest.data(), written);
        if (room == 6) {
            EXPECT_EQ(dest.text(written), "2A 02 10 07") << "room for the last leaf alone";
        }
    }
    fake::takeLog();
}

}  // namespace
