/* A plug-in from before the batch policy. */
__attribute__((visibility("default"))) unsigned QOS_TLM_InitPlugin(unsigned moduleId);
unsigned QOS_TLM_InitPlugin(unsigned moduleId) {
    return moduleId == 0;
}
