/// Not the entry point that the processor looks for.
extern "C" __attribute__((visibility("default"))) void* createSelector() {
    return nullptr;
}
