// Whether what the container says the phone is doing can be believed.
#ifndef STATUS_WORD_H
#define STATUS_WORD_H

#include "model/maintenance.h"

#include <atomic>

namespace phone {

// The container answers p=notice with a word that follows the address of the last request: it tells
// what was asked for. Not whether that was refused, or is over, or still goes on while somebody
// looks at another page; nor whether a page knows it, since a part of an address is enough. This
// remembers what was made of the last request. Any thread.
class StatusWord {
public:
    // A page request arrived; the container's word is about it from now on. Where its address names
    // a task, the word is wrong until that begins.
    void pageAsked(bool namesTask) { m_began = namesTask ? kNotBegun : Task::none; }
    // The request began the task that its address names; the word is right, unless another request
    // came meanwhile.
    void began(Task task) {
        Task expected = kNotBegun;
        m_began.compare_exchange_strong(expected, task);
    }

    // Whether the word is the one for `now`, which is what the phone is doing.
    bool isRight(Task now) const { return m_began == now; }

private:
    // No task that a page begins, so that the word is never taken for right.
    static constexpr Task kNotBegun = Task::upgrade;

    std::atomic<Task> m_began{Task::none};
};

} // namespace phone

#endif
