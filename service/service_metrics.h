// What the service has done so far, counted, for Prometheus. Every label has a closed set of
// values: the words of the decision record, the rules of the rule table, and the zones of the
// configuration's DNS block lists. Nothing that a client says becomes one. docs/policyd.md lists
// the metrics.
//
// All functions may be called from any thread. To count a decision costs half a microsecond and
// takes no lock, but for a zone that is met for the first time.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "connection_event.h"
#include "decision_record.h"

namespace quillfence::service {

// What the mail server was told.
enum class policy_answer : uint8_t { dunno, reject, warn, ok };

// Why a request was answered DUNNO without a judgement that counts.
enum class doubt : uint8_t {
    bad_request,      // it is none, or holds what can't be read
    other_state,      // of another stage than RCPT: as it should be, nothing is amiss
    no_configuration, // none could be loaded so far
    no_memory,
    deadline, // the DNS did not answer in time
    overload, // too many at once
    failure,  // the engine failed, or a fact was missing
    stopping, // the service ends
};

class service_metrics {
  public:
    struct family; // of service_metrics.cpp

    // The build is what quillfence_build_info tells.
    explicit service_metrics(const decision::engine_build &build = {});
    ~service_metrics();
    service_metrics(const service_metrics &) = delete;
    service_metrics &operator=(const service_metrics &) = delete;

    // The DNS block lists of the configuration that is in force from now on, with final dot or
    // without: their counters begin with 0. At most 64 zones have counters of their own; the rest,
    // and what is no plain name, are counted together as "other".
    void zones(std::span<const std::string> names);

    // One judged request: verdict, outcomes of the rules, DNS questions, block lists, duration.
    void decided(const decision::decision_record &record, std::chrono::microseconds took) noexcept;
    void answered(policy_answer said) noexcept;
    void in_doubt(doubt why) noexcept;
    void connection(connection_event what) noexcept;
    // A configuration was loaded anew, or could not be and the old one stays.
    void configuration_loaded(bool it_did) noexcept;
    // A record was written to the decision log, or is lost.
    void log_written(bool it_was) noexcept;

    // All of it in Prometheus' text format, version 0.0.4. What is counted meanwhile may be in some
    // of the numbers and not in others.
    std::string text() const;

  private:
    struct shard;
    static constexpr size_t shard_count = 8;
    static constexpr size_t most_zones = 64;
    static constexpr size_t longest_zone = 253;

    void add(size_t which, size_t cell) noexcept;
    uint64_t sum(size_t cell) const;
    size_t zone_place(std::string_view zone) noexcept;
    void write_cells(const family &one, std::string *text) const;
    void write_zones(const family &one, std::string *text) const;
    void write_durations(const family &one, std::string *text) const;
    void write_gauges(std::string *text) const;

    std::vector<family> families_;
    size_t cells_ = 0;
    std::array<std::unique_ptr<shard>, shard_count> shards_; // a thread counts in one of them

    std::mutex zone_lock_; // of adding a zone
    std::array<std::string, most_zones> zones_;
    std::atomic<size_t> zone_count_ = 0; // what stands before it does not change any more

    std::string build_labels_;
    const std::chrono::system_clock::time_point started_;
    std::atomic<int64_t> loaded_ms_ = 0; // since 1970; 0: never
};

} // namespace quillfence::service
