#include "helpers/driver/request_queue.h"

#include <deque>

void run_requests(RequestQueue& queue, std::size_t depth, const NextRequest& next,
                  const FinishRequest& finish)
{
    std::deque<IoRequest> onTheirWay;
    const auto finishOldest = [&] {
        const IoRequest oldest = onTheirWay.front();
        onTheirWay.pop_front();
        finish(oldest, queue.finishOldest());
    };
    for (std::size_t slot = 0;; slot = (slot + 1) % depth) {
        if (onTheirWay.size() == depth) {
            finishOldest();
        }
        const std::optional<IoRequest> request = next(slot);
        if (!request) {
            break;
        }
        queue.start(*request, depth == 1);
        onTheirWay.push_back(*request);
    }
    while (!onTheirWay.empty()) {
        finishOldest();
    }
}
