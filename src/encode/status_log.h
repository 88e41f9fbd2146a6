/*
 * The places that report an encoder failure: their number in the log line, and the status that each reports.
 */
#ifndef SRC_ENCODE_STATUS_LOG_H
#define SRC_ENCODE_STATUS_LOG_H

#include "nivex_qos/encode.h"

namespace qos {

struct LogSite {
    QosTlmEncodeStatus status;
    uint32_t number;
};

namespace site {

// GPB writer
inline constexpr LogSite kVarintTooLong = {QOS_TLM_ENC_LEN_EXCEED, 174};
inline constexpr LogSite kVarintNotCopied = {QOS_TLM_ENC_SAFE_FUNC_FAIL, 179};
inline constexpr LogSite kIntegerTag = {QOS_TLM_ENC_WRAP_FAIL, 195};
inline constexpr LogSite kIntegerValue = {QOS_TLM_ENC_WRAP_FAIL, 200};
inline constexpr LogSite kFieldTag = {QOS_TLM_ENC_WRAP_FAIL, 211};
inline constexpr LogSite kFieldLength = {QOS_TLM_ENC_WRAP_FAIL, 217};
inline constexpr LogSite kFieldNotCopied = {QOS_TLM_ENC_SAFE_FUNC_FAIL, 228};
inline constexpr LogSite kNoScratchBlock = {QOS_TLM_ENC_MALLOC_FAIL, 261};
inline constexpr LogSite kEmptyTree = {QOS_TLM_ENC_WRAP_FAIL, 284};
inline constexpr LogSite kNoOutputBlock = {QOS_TLM_ENC_MALLOC_FAIL, 290};

// JSON writer
inline constexpr LogSite kNoLeafItem = {QOS_TLM_ENC_CJSON_FAIL, 325};
inline constexpr LogSite kNoObject = {QOS_TLM_ENC_CJSON_FAIL, 368};
inline constexpr LogSite kNoEntryObject = {QOS_TLM_ENC_CJSON_FAIL, 388};
inline constexpr LogSite kNoArray = {QOS_TLM_ENC_CJSON_FAIL, 400};
inline constexpr LogSite kNoDocument = {QOS_TLM_ENC_CJSON_FAIL, 465};
inline constexpr LogSite kTreeNotWrapped = {QOS_TLM_ENC_CJSON_FAIL, 472};
inline constexpr LogSite kNoEstimateDocument = {QOS_TLM_ENC_CJSON_FAIL, 483};

// Data tree and encoding front
inline constexpr LogSite kNoTextBlock = {QOS_TLM_ENC_MALLOC_FAIL, 423};
inline constexpr LogSite kTextNotCopied = {QOS_TLM_ENC_SAFE_FUNC_FAIL, 429};
inline constexpr LogSite kTreeNotValid = {QOS_TLM_ENC_VALIDATE_FAIL, 530};

}  // namespace site

inline void logAt(const LogSite& site, uint64_t value = 0) {
    QOS_TLM_LogEncode(site.status, value, site.number);
}

}  // namespace qos

#endif
