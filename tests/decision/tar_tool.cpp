// Writes, lists and unpacks archives for tar_judges_test.py, which has other programs judge them.
//
//     tar_tool pack OUT        entries from standard input: name TAB size TAB time; size "-" is a
//                              folder. Byte i of a file is i modulo 251
//     tar_tool list FILE       name TAB size TAB time TAB SHA-256 of the contents
//     tar_tool unpack FILE FOLDER
//
// What is wrong goes to standard error; the status is 1 then.
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "file_digest.h"
#include "open_file.h"
#include "platform/file.h"
#include "tar_reader.h"
#include "tar_unpack.h"
#include "tar_writer.h"

namespace quillfence::decision {

static std::string text_of(uint64_t number) {
    return std::to_string(number);
}

static void write_contents(tar_writer *writer, uint64_t size) {
    std::string piece;
    for (uint64_t at = 0; at < size && writer->problem().empty(); at += piece.size()) {
        piece.clear();
        for (uint64_t i = at; i < size && piece.size() < 65536; ++i) {
            piece += static_cast<char>(i % 251);
        }
        writer->write(piece.data(), piece.size());
    }
}

static std::string pack(const char *path) {
    const platform::stream_ptr out(platform::stream_open(path, "wb"));
    tar_writer writer(out.get());
    for (std::string line; std::getline(std::cin, line);) {
        const size_t first = line.find('\t');
        const size_t second = line.find('\t', first + 1);
        const std::string name = line.substr(0, first);
        const std::string size = line.substr(first + 1, second - first - 1);
        const int64_t time = std::stoll(line.substr(second + 1));
        if (size == "-") {
            writer.add_folder(name, time);
            continue;
        }
        writer.begin_file(name, std::stoull(size), time);
        write_contents(&writer, std::stoull(size));
        writer.end_file();
    }
    writer.finish();
    return writer.problem();
}

static std::string list(const char *path) {
    data_files::open_file file;
    if (const uint32_t error = file.open(path)) {
        return "error " + text_of(error);
    }
    tar_reader reader(
        [&file](void *bytes, size_t size, size_t *got) { return file.read(bytes, size, got); });
    std::vector<char> piece(65536);
    for (tar_entry entry; reader.next(&entry);) {
        data_files::running_digest digest;
        for (size_t got = piece.size(); got == piece.size();) {
            if (!reader.read(piece.data(), piece.size(), &got)) {
                return reader.problem();
            }
            digest.add(piece.data(), got);
        }
        const std::string line = entry.name + '\t' + (entry.folder ? "-" : text_of(entry.size)) +
                                 '\t' + std::to_string(entry.time) + '\t' + digest.text() + '\n';
        std::fwrite(line.data(), 1, line.size(), stdout);
    }
    return reader.problem();
}

static std::string result_of(const std::vector<std::string> &words) {
    const std::string step = words.empty() ? "" : words[0];
    if (step == "pack" && words.size() == 2) {
        return pack(words[1].c_str());
    }
    if (step == "list" && words.size() == 2) {
        return list(words[1].c_str());
    }
    if (step == "unpack" && words.size() == 3) {
        return unpack_tar(words[1], words[2]).problem;
    }
    return "usage: tar_tool pack|list|unpack ...";
}

static int run(const std::vector<std::string> &words) {
    const std::string problem = result_of(words);
    std::fputs(problem.c_str(), stderr);
    return problem.empty() ? 0 : 1;
}

} // namespace quillfence::decision

int main(int argc, char **argv) {
    quillfence::platform::prepare_standard_streams();
    return quillfence::decision::run({argv + 1, argv + argc});
}
