#pragma once

namespace android {
namespace lumacast {

// What a worker or timer thread runs. Owners do not implement it themselves: each has a
// nested Client that forwards to it.
class ThreadObject {
public:
    virtual ~ThreadObject() {}
    // 0 on success; a non-zero result is only logged by the caller.
    virtual int selfProcess(void* data1, void* data2) = 0;
};

// Start routine of every worker and timer thread. `arg` is a ThreadObject*; the thread's
// exit value is selfProcess's result carried in the pointer itself (read it back with
// threadExitValue).
void* threadWork(void* arg);
int threadExitValue(void* result);

}  // namespace lumacast
}  // namespace android
