// Detects when the container's status word is stale or wrong.
#ifndef STATUS_WORD_H
#define STATUS_WORD_H

#include "model/maintenance.h"

#include <atomic>

namespace phone {

// The container answers p=notice with a status word that it takes from the address of the last
// request. So the word reports what was requested, even if that was refused, is over, is still
// going on while other pages are requested, or is no task at all. This class stores what became of
// the last request. Thread-safe.
class StatusWord {
public:
    // Call for each page request, which sets the container's word. If its address names a task, the
    // word is wrong until that task begins.
    void pageRequested(bool namesTask) { m_began = namesTask ? kNotBegun : Task::none; }
    // Call when the request has begun the task that its address names. The word is correct then,
    // unless another page was requested meanwhile.
    void began(Task task) {
        Task expected = kNotBegun;
        m_began.compare_exchange_strong(expected, task);
    }

    // Returns whether the word is correct while the phone is doing `now`.
    bool isCorrect(Task now) const { return m_began == now; }

private:
    // A task that no page begins, so that isCorrect() is always false.
    static constexpr Task kNotBegun = Task::upgrade;

    std::atomic<Task> m_began{Task::none};
};

} // namespace phone

#endif
