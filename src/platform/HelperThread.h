#pragma once

#include <pthread.h>

#include <memory>
#include <optional>

namespace System::Platform {

/// A second thread for work that falls apart into tasks, started with the first task and gone with this
/// object. One task may wait while another runs, so that the helper finds the next one ready.
///
/// Threads: belongs to the thread that made it. The helper takes no signals, and shares descriptors and the
/// current directory with its maker as all threads do.
/// Errors: if the system has no thread to give, the maker runs the tasks itself.
/// Ended by force: if the maker is, its helper finishes what it has been given and ends by itself.
class HelperThread {
public:
    class Task {
    public:
        Task() = default;
        virtual ~Task() = default;
        Task(Task const&) = delete;
        Task& operator=(Task const&) = delete;
        /// Called once, on either thread. Memory that runs out ends the task and nothing else.
        virtual void Run() = 0;
    };

    HelperThread() = default;
    /// Waits for all tasks, as Finish does, and for the end of the thread.
    ~HelperThread();
    HelperThread(HelperThread const&) = delete;
    HelperThread& operator=(HelperThread const&) = delete;

    /// Whether a task would be begun soon: none waits, and a second thread has a processor to run on.
    [[nodiscard]] bool HasRoom();
    /// Leaves `task` to the helper. Requires: HasRoom().
    void Give(std::unique_ptr<Task> task);
    /// Runs the task that waits, if one does, and returns when the helper is done with its own as well.
    void Finish();
    /// Whether it has ever been given a task.
    [[nodiscard]] bool WasUsed() const { return m_Shared != nullptr; }

private:
    struct Shared;

    static void* Work(void* shared);
    static void RunAndCount(Shared& shared, std::unique_ptr<Task> task) noexcept;
    [[nodiscard]] bool Start();
    void Join();

    std::shared_ptr<Shared> m_Shared;
    std::optional<pthread_t> m_Thread;  // until it is joined
    bool m_IsRefused = false;
};

}  // namespace System::Platform
