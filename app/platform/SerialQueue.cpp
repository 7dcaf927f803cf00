#include "app/platform/SerialQueue.h"

#include "app/platform/JobQueue.h"

#include <utility>

SerialQueue::SerialQueue(const std::string& label)
    : jobs_(std::make_shared<JobQueue>(label, JobQueue::Service::Serial)) {}

SerialQueue::~SerialQueue() {
    jobs_->close();
}

void SerialQueue::async(std::function<void()> job) {
    jobs_->async(std::move(job));
}
