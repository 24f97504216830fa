// The engine's start and end.
#pragma once

namespace quillfence::programs {

// Throws a failure when the engine can't be started.
class started_engine {
  public:
    started_engine();
    ~started_engine();
    started_engine(const started_engine &) = delete;
    started_engine &operator=(const started_engine &) = delete;
};

} // namespace quillfence::programs
