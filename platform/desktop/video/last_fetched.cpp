#include "last_fetched.h"

#include <utility>

namespace desktop {
namespace {

Fetched& ofThisThread() {
    thread_local Fetched fetched;
    return fetched;
}

}  // namespace

const Fetched& lastFetched() {
    return ofThisThread();
}

void noteFetched(Fetched fetched) {
    ofThisThread() = std::move(fetched);
}

}  // namespace desktop
