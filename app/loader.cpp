// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/loader.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace qf::app {

struct LoaderState {
    std::mutex mutex;
    std::condition_variable changed; // requests, answers, cancels and events
    std::deque<LoaderEvent> events;
    std::deque<LoadRequest> loads;
    std::function<void()> event_ready;
    std::uint64_t next_question = 1;
    std::uint64_t open_question = 0; // 0: none
    std::optional<intake::PromptAnswer> answer;
    bool cancel_load = false; // the load under way is to end
    bool closing = false;     // the loader is going
    bool thread_done = false;

    // With the lock held.
    void push(LoaderEvent event)
    {
        events.push_back(std::move(event));
        changed.notify_all();
        if (event_ready) {
            event_ready();
        }
    }

    bool cancelled()
    {
        const std::lock_guard lock(mutex);
        return cancel_load || closing;
    }
};

namespace {

// Puts the question to the front end as an event and waits for its answer on the loader's
// thread; a cancel or the loader's end answers it with Cancel.
class QueuedPrompt final : public intake::PasswordPrompt {
public:
    explicit QueuedPrompt(LoaderState& shared) : shared_(shared) {}

    intake::PromptAnswer ask(const std::string& prompt_text, const std::string& file_name) override
    {
        return put({0, prompt_text, file_name, {}});
    }

    intake::PromptAnswer ask_unreadable(const std::string& prompt_text, const std::string& file_name,
                                        const std::string& reason) override
    {
        return put({0, prompt_text, file_name, reason});
    }

private:
    intake::PromptAnswer put(PasswordAsked question)
    {
        std::unique_lock lock(shared_.mutex);
        if (shared_.cancel_load || shared_.closing) {
            return intake::PromptAnswer::cancel();
        }
        question.question = shared_.next_question++;
        shared_.open_question = question.question;
        shared_.answer.reset();
        shared_.push(std::move(question));
        shared_.changed.wait(lock, [&] { return shared_.answer || shared_.cancel_load || shared_.closing; });
        shared_.open_question = 0;
        if (!shared_.answer) {
            return intake::PromptAnswer::cancel();
        }
        intake::PromptAnswer answer = std::move(*shared_.answer);
        shared_.answer.reset();
        return answer;
    }

    LoaderState& shared_;
};

void run_loads(const std::shared_ptr<LoaderState>& shared)
{
    for (;;) {
        LoadRequest request;
        {
            std::unique_lock lock(shared->mutex);
            shared->changed.wait(lock, [&] { return shared->closing || !shared->loads.empty(); });
            if (shared->closing) {
                return;
            }
            request = std::move(shared->loads.front());
            shared->loads.pop_front();
            shared->cancel_load = false;
        }
        QueuedPrompt prompt(*shared);
        const auto queue = [&](LoaderEvent event) {
            const std::lock_guard lock(shared->mutex);
            shared->push(std::move(event));
        };
        LoadListener listener;
        listener.row_admitted = [&](const engine::ListRow& row) { queue(RowAdmitted{row}); };
        listener.candidate_done = [&](std::size_t rows_added) { queue(CandidateDone{rows_added}); };
        listener.problem = [&](const LoadProblem& problem) { queue(problem); };
        const LoadSummary summary = run_load(request, prompt, listener, [&] { return shared->cancelled(); });
        queue(LoadFinished{summary});
    }
}

} // namespace

Loader::Loader() : shared_(std::make_shared<LoaderState>())
{
    thread_ = std::thread([shared = shared_] {
        run_loads(shared);
        const std::lock_guard lock(shared->mutex);
        shared->thread_done = true;
        shared->changed.notify_all();
    });
}

Loader::~Loader()
{
    std::unique_lock lock(shared_->mutex);
    shared_->closing = true;
    shared_->loads.clear();
    shared_->event_ready = nullptr;
    shared_->changed.notify_all();
    const bool ended = shared_->changed.wait_for(lock, kTeardownWait, [&] { return shared_->thread_done; });
    lock.unlock();
    if (ended) {
        thread_.join();
    } else {
        // Still inside a reader (a hostile file): it owns its share of the state, ends by
        // itself and frees it then.
        thread_.detach();
    }
}

void Loader::send(LoaderRequest request)
{
    const std::lock_guard lock(shared_->mutex);
    if (auto* load = std::get_if<StartLoad>(&request)) {
        shared_->loads.push_back(std::move(*load));
    } else if (auto* reply = std::get_if<AnswerPassword>(&request)) {
        if (reply->question != 0 && reply->question == shared_->open_question) {
            shared_->answer = std::move(reply->answer);
        }
    } else {
        shared_->loads.clear();
        shared_->cancel_load = true;
    }
    shared_->changed.notify_all();
}

std::optional<LoaderEvent> Loader::next_event(std::chrono::milliseconds timeout)
{
    std::unique_lock lock(shared_->mutex);
    shared_->changed.wait_for(lock, timeout, [&] { return !shared_->events.empty(); });
    if (shared_->events.empty()) {
        return std::nullopt;
    }
    LoaderEvent event = std::move(shared_->events.front());
    shared_->events.pop_front();
    return event;
}

void Loader::set_event_ready(std::function<void()> notify)
{
    const std::lock_guard lock(shared_->mutex);
    shared_->event_ready = std::move(notify);
}

} // namespace qf::app
