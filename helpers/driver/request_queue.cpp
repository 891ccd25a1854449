#include "helpers/driver/request_queue.h"

#include <deque>

void run_requests(DriveTarget& target, std::size_t depth, const NextRequest& next,
                  const FinishRequest& finish)
{
    std::deque<DriveRequest> onTheirWay;
    const auto finishOldest = [&] {
        const DriveRequest oldest = onTheirWay.front();
        onTheirWay.pop_front();
        finish(oldest, target.finishOldest());
    };
    for (std::size_t slot = 0;; slot = (slot + 1) % depth) {
        if (onTheirWay.size() == depth) {
            finishOldest();
        }
        const std::optional<DriveRequest> request = next(slot);
        if (!request) {
            break;
        }
        target.start(*request);
        onTheirWay.push_back(*request);
    }
    while (!onTheirWay.empty()) {
        finishOldest();
    }
}
