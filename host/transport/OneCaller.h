// Notices two threads in one transport object.
#pragma once

#include <atomic>

namespace lumo::transport {

// The library takes no lock: whoever owns a device object lets one thread at a time into it. Two
// would mix their messages in the one request buffer, and nothing but wrong answers would show it.
// This notices calls that overlap, and a message sent by another thread than the last one that took
// the buffer for its own. Then it ends the process with a fatal line in the log. It costs a few
// nanoseconds a call.
class OneCaller {
  public:
    // The time that a thread spends in a call.
    class Call {
      public:
        explicit Call(OneCaller& callers) : callers_(callers) {
            if (callers_.inside_.exchange(true, std::memory_order_acquire)) complain();
        }
        ~Call() { callers_.inside_.store(false, std::memory_order_release); }
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;

      private:
        OneCaller& callers_;
    };

    // The calling thread takes the request buffer to write its message.
    void takesBuffer() { writer_ = thisThread(); }
    // It sends what lies there.
    void sendsBuffer() const {
        if (writer_ != nullptr && writer_ != thisThread()) complain();
    }

  private:
    static const void* thisThread() {
        static thread_local char mark;
        return &mark;
    }
    [[noreturn]] static void complain();

    std::atomic<bool> inside_{false};
    const void* writer_ = nullptr;
};

}  // namespace lumo::transport
