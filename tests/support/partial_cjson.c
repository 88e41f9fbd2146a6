/* A library that offers all of cJSON that the plug-in needs except cJSON_free and cJSON_Delete. */
#define OFFERED(name)                                       \
    __attribute__((visibility("default"))) void name(void); \
    void name(void) {}
OFFERED(cJSON_CreateNumber)
OFFERED(cJSON_CreateString)
OFFERED(cJSON_CreateBool)
OFFERED(cJSON_CreateObject)
OFFERED(cJSON_CreateArray)
OFFERED(cJSON_AddItemToObject)
OFFERED(cJSON_AddItemToArray)
OFFERED(cJSON_PrintUnformatted)
