#include "WithinTime.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace watch {

namespace {

/// What both threads share; the one that is left behind keeps it alive.
struct Answer {
    std::mutex mutex;
    std::condition_variable changed;
    std::optional<std::string> text;
};

} // namespace

std::optional<std::string> withinTime(std::chrono::milliseconds patience, std::function<std::string()> read) {
    const auto answer = std::make_shared<Answer>();
    try {
        std::thread([answer, read = std::move(read)] {
            std::string text = read();
            const std::lock_guard<std::mutex> lock(answer->mutex);
            answer->text = std::move(text);
            answer->changed.notify_all();
        }).detach();
    } catch (const std::system_error&) {
        return std::nullopt;
    }
    std::unique_lock<std::mutex> lock(answer->mutex);
    answer->changed.wait_for(lock, patience, [&] { return answer->text.has_value(); });
    return answer->text;
}

} // namespace watch
