#include "app/platform/BackgroundQueue.h"

#include "app/platform/JobQueue.h"

#include <utility>

void BackgroundQueue::async(std::function<void()> job) {
    static const auto& jobs = *new std::shared_ptr<JobQueue>(
        std::make_shared<JobQueue>("background", JobQueue::Service::Background)); // outlives main()
    jobs->async(std::move(job));
}
