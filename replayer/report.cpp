namespace quillfence {} // namespace quillfence
