#include "app/platform/GlobalQueue.h"

#include "app/platform/JobQueue.h"

#include <utility>

void GlobalQueue::async(std::function<void()> job) {
    static const auto& jobs = *new std::shared_ptr<JobQueue>(
        std::make_shared<JobQueue>("global", JobQueue::Service::Default)); // outlives main()
    jobs->async(std::move(job));
}
