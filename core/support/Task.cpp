#include "core/support/Task.h"

#include <atomic>
#include <pthread.h>
#include <utility>

namespace brimvale {

struct Task::State {
    std::string label;
    std::atomic<bool> finished{false};
    std::exception_ptr failure; // written by the body's thread before `finished` is set
};

Task Task::start(std::string label, Body body) {
    Task task;
    task.state_ = std::make_shared<State>();
    task.state_->label = std::move(label);
    task.thread_ =
        std::jthread([state = task.state_, body = std::move(body)](std::stop_token token) {
            // Linux limits thread names to 15 characters.
            pthread_setname_np(pthread_self(), state->label.substr(0, 15).c_str());
            try {
                body(token);
            } catch (const CancellationError&) {
            } catch (...) {
                state->failure = std::current_exception();
            }
            state->finished.store(true, std::memory_order_release);
        });
    return task;
}

Task& Task::operator=(Task&& other) noexcept {
    if (this != &other) {
        cancel();
        if (thread_.joinable()) {
            thread_.join();
        }
        state_ = std::move(other.state_);
        thread_ = std::move(other.thread_);
    }
    return *this;
}

Task::~Task() {
    cancel();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void Task::cancel() {
    if (thread_.joinable()) {
        thread_.request_stop();
    }
}

void Task::detach() {
    if (thread_.joinable()) {
        thread_.detach();
    }
}

bool Task::isCancelled() const {
    return thread_.get_stop_token().stop_requested();
}

bool Task::isFinished() const {
    return state_ == nullptr || state_->finished.load(std::memory_order_acquire);
}

void Task::wait() {
    if (thread_.joinable()) {
        thread_.join();
    }
    if (state_ && state_->failure) {
        std::rethrow_exception(std::exchange(state_->failure, nullptr));
    }
}

const std::string& Task::label() const {
    static const std::string none;
    return state_ ? state_->label : none;
}

} // namespace brimvale
