// Decisions a second in one process, with the answers of the DNS at hand: the configuration read
// for every question, and read beforehand. Two configurations: the sample of examples/drive_c, and
// a big one with 1,500 patterns, two lists of 20,000 lines, a block map of 200,000 networks, 300
// ranges and 500 sender domains. Each benchmark asserts that both ways decide alike.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "explain.h"
#include "pattern_line_files.h"
#include "platform/dns.h"
#include "platform/file.h"
#include "platform/surroundings.h"
#include "quillfence-iprange-file.h"
#include "quillfence.h"
#include "snapshot.h"
#include "tiny_rex_storage.h"
#include "vc_text.h"

namespace {

using namespace quillfence;
using decision::transaction;

constexpr unsigned transaction_count = 2000;

void fail(const char *why) {
    std::fprintf(stderr, "decisions_bench: %s\n", why);
    std::exit(2);
}

// --- the DNS ---

// Every client has a name, every other name an address; no block list lists anybody.
uint32_t answer(void *, const char *name, uint16_t type, uint32_t, platform::dns_record **records,
                platform::dns_details *) {
    const std::string asked = name;
    *records = nullptr;
    if (asked.find("rbl") != std::string::npos || asked.find("missing") != std::string::npos) {
        return 9003;
    }
    const bool reverse = type == platform::dns_type_ptr;
    const std::string host = "host-" + asked.substr(0, asked.find(".in-addr")) + ".pool.example";
    *records = platform::dns_new_record(type, reverse ? host.c_str() : "192.0.2.1");
    return *records ? 0 : 8;
}

// --- transactions ---

std::string number(std::mt19937 &random, unsigned below) {
    return std::to_string(random() % below);
}

transaction random_transaction(std::mt19937 &random) {
    transaction made;
    made.ip = number(random, 223) + '.' + number(random, 256) + '.' + number(random, 256) + '.' +
              number(random, 256);
    made.port = "25";
    made.tls = random() % 2;
    made.authuser = "";
    made.mua = false;
    made.helo = random() % 10 ? "mail" + number(random, 1000) + ".example" : "missing.example";
    made.sender =
        "user" + number(random, 1000000) + "@domain" + number(random, 100000) + ".example";
    made.recipient = "rcpt" + number(random, 100) + "@here.example";
    return made;
}

std::vector<transaction> transactions() {
    std::mt19937 random(1);
    std::vector<transaction> made;
    while (made.size() < transaction_count) {
        const bool again = !made.empty() && random() % 10 == 0;
        made.push_back(again ? made[random() % made.size()] : random_transaction(random));
    }
    return made;
}

// --- configurations ---

void write_file(const std::string &path, const std::string &bytes) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string list_of(std::mt19937 &random) {
    std::string text;
    for (int i = 0; i < 20000; ++i) {
        const std::string domain = "domain" + number(random, 1000000) + ".example\n";
        text += (i % 10 ? "user" + number(random, 1000000) + '@' : "*@") + domain;
    }
    return text;
}

void append(std::string *bytes, uint64_t value, int size, bool big = false) {
    for (int i = 0; i < size; ++i) {
        bytes->push_back(static_cast<char>(value >> 8 * (big ? size - 1 - i : i) & 0xFF));
    }
}

std::string ranges_of(std::mt19937 &random) {
    std::string bytes;
    append(&bytes, range_signature, 8);
    append(&bytes, range_version, 4);
    append(&bytes, 300, 4);
    for (int i = 0; i < 300; ++i) {
        const uint32_t low = static_cast<uint32_t>(random()) & 0x7FFFFF00;
        append(&bytes, low, 4, true);
        append(&bytes, low + 200, 4, true);
        bytes.resize(bytes.size() + range_record_size - legacy_record_size);
    }
    return bytes;
}

std::string declarations_of(std::mt19937 &random) {
    std::string text;
    for (int i = 0; i < 500; ++i) {
        text += "tied" + std::to_string(i) + ".example : " + number(random, 224) + ".0.0.0/8\n";
    }
    return text;
}

// 200,000 networks of one address each, in 2,000 of 65,536 addresses.
std::string map_of(std::mt19937 &random) {
    std::string bytes(1024, '\0');
    const auto at = [&bytes](size_t entry, size_t size) {
        uint32_t place = 0;
        for (size_t i = 0; i < 4; ++i) {
            place |= static_cast<uint32_t>(static_cast<unsigned char>(bytes[entry + i])) << 8 * i;
        }
        if (!place) {
            place = static_cast<uint32_t>(bytes.size());
            bytes.resize(bytes.size() + size);
            for (size_t i = 0; i < 4; ++i) {
                bytes[entry + i] = static_cast<char>(place >> 8 * i & 0xFF);
            }
        }
        return size_t{place};
    };
    for (int network = 0; network < 2000; ++network) {
        const size_t bitmap = at(at(random() % 224 * 4, 1024) + random() % 256 * 4, 8192);
        for (int i = 0; i < 100; ++i) {
            bytes[bitmap + random() % 8192] |= static_cast<char>(1 << random() % 8);
        }
    }
    return bytes;
}

std::string patterns() {
    std::ifstream list(QF_TEST_DATA "/fqrdns.pcre");
    std::string bytes;
    append(&bytes, trs_magic, 4);
    for (std::string line; std::getline(list, line);) {
        const size_t last = line.rfind('/');
        if (line[0] != '/' || !last) {
            continue;
        }
        TRex *const expression = trex_compile_ex(line.substr(1, last - 1).c_str(), trex_fold_case);
        if (!expression) {
            continue;
        }
        append(&bytes, static_cast<uint32_t>(expression->nsize), 4);
        for (int32_t i = 0; i < expression->nsize; ++i) {
            const TRexNode &node = expression->nodes[i];
            for (const int32_t field : {node.type, node.left, node.right, node.next}) {
                append(&bytes, static_cast<uint32_t>(field), 4);
            }
        }
        trex_free(expression);
    }
    return bytes;
}

class big_drive {
  public:
    big_drive() : root_(std::filesystem::temp_directory_path() / "quillfence-decisions-bench") {
        std::mt19937 random(2);
        const std::string base = root_.string() + "/quillfence/";
        const std::string names = "check_dynamic_reverse_dns\ncheck_reverse_dns_list\n"
                                  "require_helo\nvalid_helo_domain\nresolve_helo_domain\n"
                                  "valid_from_domain\nknown_sender_forgery\nvalid_ptr\n";
        write_file(base + "control/enabled", "1\n");
        write_file(base + "control/rules.enabled", names);
        write_file(base + "control/bms.enabled", "map\n");
        write_file(base + "control/valid_domain_ips", declarations_of(random));
        write_file(base + "bms/lists_to_update", "map\n");
        write_file(base + "bms/map", map_of(random));
        write_file(base + "rbl.enabled", "rbl.example\n");
        write_file(base + "from_whitelist", list_of(random));
        write_file(base + "from_blacklist", list_of(random));
        write_file(base + "blocked_ips.range", ranges_of(random));
        write_file(base + "dynaregex/dyna.cregexes", patterns());
        write_file(base + "dynaregex/spam.cregexes", patterns());
    }
    ~big_drive() {
        std::filesystem::remove_all(root_);
    }
    big_drive(const big_drive &) = delete;
    big_drive &operator=(const big_drive &) = delete;
    std::string root() const {
        return root_.string();
    }

  private:
    std::filesystem::path root_;
};

void use_drive(bool big) {
    static const big_drive drive;
    if (platform::set_drive_root(big ? drive.root().c_str() : QF_SAMPLE_DRIVE)) {
        fail("the drive can't be used");
    }
}

// --- the benchmarks ---

// Decides all transactions; how many were rejected.
unsigned decide_all(const std::vector<transaction> &all, const frozen_files *frozen, bool report,
                    const decision::pattern_line_files *lines = nullptr) {
    dns_source dns = {.context = nullptr, .ask = answer};
    decision::explain_options options;
    options.report = report;
    options.near_misses = options.files = options.times = options.quiet_rules = false;
    options.dns = &dns;
    options.configuration = frozen;
    options.pattern_lines = lines;
    unsigned rejected = 0;
    decision::explain_result result;
    for (const transaction &one : all) {
        decision::explain(one, options, &result);
        if (result.failed) {
            fail(result.failed);
        }
        rejected += result.record.decision.is == decision::verdict::reject;
    }
    return rejected;
}

// What is timed, under a name of its own: callgrind counts its instructions alone when it is given
// --toggle-collect='*timed_decisions*'.
[[gnu::noinline]] unsigned timed_decisions(const std::vector<transaction> &all,
                                           const frozen_files *frozen, bool report,
                                           const decision::pattern_line_files *lines) {
    return decide_all(all, frozen, report, lines);
}

void decisions(benchmark::State &state, bool big, bool beforehand, bool report) {
    static const std::vector<transaction> all = transactions();
    use_drive(big);
    snapshot_report problems;
    frozen_files *const frozen = snapshot_load(nullptr, &problems);
    snapshot_report_release(&problems);
    if (!frozen) {
        fail("the configuration can't be loaded");
    }
    const decision::pattern_line_files lines(*frozen);
    const std::vector<transaction> some(all.begin(), all.begin() + 100);
    if (decide_all(some, frozen, report, &lines) != decide_all(some, nullptr, report)) {
        fail("the two ways decide differently");
    }
    for ([[maybe_unused]] const auto &_ : state) {
        benchmark::DoNotOptimize(timed_decisions(all, beforehand ? frozen : nullptr, report,
                                                 beforehand ? &lines : nullptr));
    }
    state.SetItemsProcessed(state.iterations() * int64_t{transaction_count});
    snapshot_free(frozen);
}

void a_name_against_the_patterns(benchmark::State &state) {
    use_drive(true);
    snapshot_report problems;
    frozen_files *const frozen = snapshot_load(nullptr, &problems);
    snapshot_report_release(&problems);
    call_context context = {.configuration = frozen};
    const call_scope scope(&context);
    for ([[maybe_unused]] const auto &_ : state) {
        benchmark::DoNotOptimize(compiled_regex_match("c:/quillfence/dynaregex/dyna.cregexes",
                                                      "host-1-2-3-4.pool.example.org"));
    }
    snapshot_free(frozen);
}

void loading(benchmark::State &state) {
    use_drive(true);
    for ([[maybe_unused]] const auto &_ : state) {
        snapshot_report problems;
        snapshot_free(snapshot_load(nullptr, &problems));
        snapshot_report_release(&problems);
    }
}

BENCHMARK_CAPTURE(decisions, sample_files, false, false, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decisions, sample_frozen, false, true, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decisions, sample_frozen_report, false, true, true)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decisions, big_files, true, false, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decisions, big_frozen, true, true, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decisions, big_frozen_report, true, true, true)->Unit(benchmark::kMillisecond);
BENCHMARK(a_name_against_the_patterns);
BENCHMARK(loading)->Unit(benchmark::kMillisecond);

} // namespace

int main(int count, char **arguments) {
    benchmark::Initialize(&count, arguments);
    if (!quillfence_init()) {
        fail("the engine does not start");
    }
    benchmark::RunSpecifiedBenchmarks();
    quillfence_teardown();
    return 0;
}
