// An archive from anywhere: what is read of it, and what unpacking leaves on the disk.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "bundle.h"
#include "fuzz_support.h"
#include "platform/file.h"
#include "tar_reader.h"
#include "tar_writer.h"

namespace quillfence::testing {

using namespace decision;

namespace fs = std::filesystem;

namespace {

constexpr char archive[] = "c:/quillfence/in.tar";
constexpr char target[] = "c:/quillfence/there";
constexpr tar_limits limits = {.entries = 64, .file_size = 1 << 16, .total_size = 1 << 18};

struct packed {
    tar_entry entry;
    std::string bytes;
};

std::vector<packed> read_all(const std::string &bytes, std::string *problem) {
    size_t at = 0;
    tar_reader reader(
        [&](void *to, size_t size, size_t *got) {
            *got = std::min(size, bytes.size() - at);
            memcpy(to, bytes.data() + at, *got);
            at += *got;
            return uint32_t{0};
        },
        limits);
    std::vector<packed> found;
    for (tar_entry entry; reader.next(&entry);) {
        QF_PROMISE(found.size() < limits.entries && entry.size <= limits.file_size);
        QF_PROMISE(why_no_tar_name(entry.name).empty());
        packed one{entry, std::string(static_cast<size_t>(entry.size), '\0')};
        size_t got = 0;
        if (!reader.read(one.bytes.data(), one.bytes.size(), &got)) {
            break;
        }
        QF_PROMISE(got == one.bytes.size());
        found.push_back(one);
    }
    *problem = reader.problem();
    return found;
}

// What was read can be written, and is read as the same.
void judge_writer(const std::vector<packed> &entries) {
    const std::string path = "c:/quillfence/out.tar";
    {
        const platform::stream_ptr out(platform::stream_open(path.c_str(), "wb"));
        tar_writer writer(out.get(), limits);
        for (const packed &one : entries) {
            if (one.entry.folder) {
                writer.add_folder(one.entry.name, one.entry.time);
            } else {
                writer.add_file(one.entry.name, one.bytes, one.entry.time);
            }
        }
        writer.finish();
        QF_PROMISE(writer.problem().empty());
    }
    std::string problem;
    const auto again = read_all(file_bytes(path), &problem);
    QF_PROMISE(problem.empty() && again.size() == entries.size());
    for (size_t i = 0; i < again.size(); ++i) {
        QF_PROMISE(again[i].bytes == entries[i].bytes);
        // eleven digits hold no later time
        QF_PROMISE(again[i].entry == entries[i].entry || entries[i].entry.time > 077777777777);
    }
}

size_t files_in(const std::string &folder) {
    size_t count = 0;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(folder)) {
        QF_PROMISE(!entry.is_symlink());
        count += entry.is_regular_file();
    }
    return count;
}

// All of it lies in the folder, or there is no folder.
void judge_unpacking(const std::string &bytes, const std::vector<packed> &entries, bool is_sound) {
    const drive_c &drive = fuzz_drive();
    drive.write(archive, bytes);
    const unpacked_tar result = unpack_tar(archive, target, limits);
    size_t files = 0;
    for (const packed &one : entries) {
        files += !one.entry.folder;
    }
    if (!is_sound) {
        QF_PROMISE(!result.problem.empty() && !drive.exists(target));
    } else if (result.problem.empty()) {
        QF_PROMISE(files_in(drive.native(target)) == files);
        for (const packed &one : entries) {
            QF_PROMISE(one.entry.folder ||
                       file_bytes(std::string(target) + "/" + one.entry.name) == one.bytes);
        }
    }
    drive.remove(target); // and nothing besides it and the two archives
    drive.remove(archive);
    drive.remove("c:/quillfence/out.tar");
    QF_PROMISE(files_in(drive.native("c:/quillfence")) == 0);
}

// Headers whose sum is right, so that the bytes behind it count.
std::string with_checksums(std::string bytes) {
    for (size_t at = 0; at + 512 <= bytes.size(); at += 512) {
        if (bytes.compare(at + 257, 5, "ustar") != 0) {
            continue;
        }
        unsigned sum = 8 * ' ';
        for (size_t i = 0; i < 512; ++i) {
            sum += i < 148 || i >= 156 ? static_cast<unsigned char>(bytes[at + i]) : 0u;
        }
        char text[9];
        std::snprintf(text, sizeof text, "%06o", sum);
        memcpy(&bytes[at + 148], text, 7);
        bytes[at + 155] = ' ';
    }
    return bytes;
}

} // namespace

void fuzz_one(fuzz_input &input) {
    const bool mend = input.byte() & 1;
    std::string bytes = input.rest();
    if (mend) {
        bytes = with_checksums(bytes);
    }
    fuzz_drive();
    std::string problem;
    const auto entries = read_all(bytes, &problem);
    if (problem.empty()) {
        judge_writer(entries);
    }
    judge_unpacking(bytes, entries, problem.empty());
    is_bundle(bytes);
}

} // namespace quillfence::testing
