// The code of a bundle in the tests: a class with a method that can be observed, a class known by its name
// alone, and one that is not exported.

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED int feedAgentStarts;
int feedAgentStarts = 0;

EXPORTED void NuvoloClient_startSync() { ++feedAgentStarts; }

EXPORTED int NuvoloMarker;
int NuvoloMarker = 1;

extern "C" void NuvoloHidden_startSync() { feedAgentStarts += 100; }
