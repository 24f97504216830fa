// Counters, mail log, saved maps and packets on a system that fails.
#include "fault_sweep.h"
#include "heap_text.h"
#include "owned_session.h"
#include "platform/file.h"
#include "qfd-packet.h"
#include "quillfence-log.h"
#include "vc_hashmap.h"

namespace quillfence::testing {
namespace {

constexpr char user_dir[] = "c:/quillfence/user";

class faults_records : public drive_test {
  protected:
    uint32_t ham_in(const std::string &path, bool hourly) {
        const vc_handle file = vc_open_ex(path.c_str(), 0, 0, 0);
        uint32_t total = 0;
        ql_counter counter;
        for (int i = 0; i < (hourly ? ql_hours : ql_days); ++i) {
            if (hourly ? ql_read_counter_hour(file, i, &counter)
                       : ql_read_counter_day(file, i, &counter)) {
                total += counter.ham;
            }
        }
        vc_close(file);
        return total;
    }
};

// A counter file has its exact size or can be begun anew, and never more counts than verdicts. A
// header that can't be read counts as no header: then the file is begun anew, and the counts in it
// are lost. That is the counters' own rule.
TEST_F(faults_records, counters) {
    for (const bool hourly : {false, true}) {
        const auto count = [hourly] {
            (hourly ? quillfence_increment_counter_hourly
                    : quillfence_increment_counter)(user_dir, log_type_ham, 0);
        };
        std::string path;
        const unsigned runs = sweep_faults(
            [&] {
                drive.remove(user_dir);
                drive.make_folder(user_dir);
                count();
                count();
                path = contents_of(drive).begin()->first;
                log.take();
            },
            count,
            [&](const fault &) {
                log.take();
                ASSERT_TRUE(drive.exists(path));
                EXPECT_LE(ham_in(path, hourly), 3u);
                log.take();
                count(); // the next verdict is counted again, whatever happened
                EXPECT_TRUE(log.errors().empty());
                const uint32_t ham = ham_in(path, hourly);
                EXPECT_TRUE(ham >= 1 && ham <= 4) << ham;
                EXPECT_EQ(drive.read(path).size(), hourly ? ql_hourly_size : ql_daily_size);
            });
        EXPECT_GT(runs, 50u) << hourly;
        EXPECT_EQ(ham_in(path, hourly), 3u);
    }
}

// Of a mail log only its end can suffer: the earlier lines stay.
TEST_F(faults_records, mail_log) {
    const std::string earlier = "an earlier line\r\n";
    const session state("192.0.2.1");
    vc_append_list_entry(&state->user_dirs, user_dir, sizeof user_dir, 1);
    const unsigned runs = sweep_faults(
        [&] {
            for (const char *folder : {"c:/quillfence/log", user_dir}) {
                drive.remove(folder);
                drive.write(folder + std::string("/qflog"), earlier);
            }
            log.take();
        },
        [&] { log_message(state, "rule", log_type_spam); },
        [&](const fault &) {
            log.take();
            for (const char *folder : {"c:/quillfence/log", user_dir}) {
                EXPECT_TRUE(drive.read(folder + std::string("/qflog")).starts_with(earlier));
            }
        });
    EXPECT_GT(runs, 200u);
}

// There is the old map or the new one, and a save that was reported is the new one.
TEST_F(faults_records, saving_a_map) {
    static constexpr char path[] = "c:/quillfence/map";
    vc_hashmap *map = vc_map_create(3, 2);
    vc_map_store_ex(map, "a", heap_text("1"), 2, 0, free);
    vc_map_save(map, path, 1);
    const std::string before = drive.read(path);
    vc_map_store_ex(map, "b", heap_text("2"), 2, 0, free);
    int saved = 0;
    const unsigned runs = sweep_faults(
        [&] {
            drive.remove(path + std::string(".tmp"));
            drive.write(path, before);
            log.take();
        },
        [&] { saved = vc_map_save(map, path, 1); },
        [&](const fault &) {
            const bool told = !log.errors().empty();
            const bool is_old = drive.read(path) == before;
            vc_hashmap *loaded = vc_map_load(path);
            EXPECT_TRUE(saved || told);
            EXPECT_TRUE(!saved || !is_old) << "saved, but not there";
            EXPECT_EQ(vc_map_count(loaded), is_old ? 1u : 2u);
            vc_map_destroy(loaded);
            log.take();
        });
    EXPECT_GT(runs, 20u);
    EXPECT_EQ(saved, 1);
    vc_map_destroy(map);
}

const char *arguments[] = {"replayer", "R", "192.0.2.1", "25",          "1",
                           "user",     "0", "a.example", "a@b.example", "c@d.example"};

// A packet is sent whole, or the sender is told; what is received is the packet, an ERROR line and
// nothing, or a packet whose missing rest is absent, as at the end of a stream.
TEST_F(faults_records, packets) {
    static constexpr char path[] = "c:/quillfence/stream";
    qfd_request_packet *sent = qfd_request_packet_from_args(10, const_cast<char **>(arguments));
    vc_handle stream = vc_open_ex(path, 0, 1, 0);
    const auto end_stream = [&] {
        if (stream != vc_invalid_handle) {
            vc_close(stream);
            stream = vc_invalid_handle;
        }
    };
    ASSERT_EQ(qfd_request_packet_send(stream, sent), 1);
    end_stream();
    const std::string whole = drive.read(path);

    int result = 0;
    EXPECT_GT(sweep_faults(
                  [&] {
                      end_stream();
                      drive.remove(path);
                      stream = vc_open_ex(path, 0, 1, 0);
                  },
                  [&] { result = qfd_request_packet_send(stream, sent); },
                  [&](const fault &) {
                      end_stream();
                      EXPECT_EQ(result, drive.read(path) == whole ? 1 : 0);
                      EXPECT_TRUE(result || !log.errors().empty());
                      log.take();
                  }),
              50u);
    end_stream();

    drive.write(path, whole);
    qfd_request_packet *received = nullptr;
    EXPECT_GT(sweep_faults(
                  [&] {
                      end_stream();
                      stream = vc_open_ex(path, 0, 0, 0);
                      qfd_request_packet_free(received);
                      received = nullptr;
                  },
                  [&] {
                      received = qfd_request_packet_receive_state(stream)
                                     ? qfd_request_packet_receive(stream)
                                     : nullptr;
                  },
                  [&](const fault &what) {
                      end_stream();
                      const bool told = !log.errors().empty();
                      EXPECT_TRUE(received || told);
                      if (received && what.answer != platform::observed_half) {
                          ADD_FAILURE() << "a failed read went unnoticed";
                      }
                      qfd_request_packet_free(received);
                      received = nullptr;
                      log.take();
                  }),
              50u);
    end_stream();
    ASSERT_NE(received, nullptr);
    EXPECT_EQ(shown(received->to), "c@d.example");
    qfd_request_packet_free(received);
    qfd_request_packet_free(sent);
}

} // namespace
} // namespace quillfence::testing
