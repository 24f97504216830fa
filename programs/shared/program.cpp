#include "program.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <new>

#include "command_line.h"
#include "engine_messages.h"
#include "line_input.h"
#include "platform/error_numbers.h"
#include "platform/file.h"
#include "text.h"
#include "vc_w32.h"

namespace quillfence::programs {

using namespace data_files;

static const char *program_name = "";

// What was printed must be true, and must have arrived.
static exit_status finished(exit_status status) {
    engine_messages::require_memory();
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
        throw failure(std::string("standard output can't be written: ") + std::strerror(errno));
    }
    return status;
}

static void write_line(std::string line) {
    vc_sanitize(line.data());
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
}

void set_program_name(const char *name) {
    program_name = name;
}

void complain(const std::string &text) {
    write_line(std::string(program_name) + ": " + text);
}

void complain_at(const std::string &file, uint64_t line, weight how, const std::string &text) {
    write_line(file + ":" + std::to_string(line) +
               (how == weight::error ? ": error: " : ": warning: ") + text);
}

std::string counted(uint64_t count, const std::string &noun, const std::string &plural) {
    return std::to_string(count) + " " + (count == 1 ? noun : plural.empty() ? noun + "s" : plural);
}

void for_each_argument(const std::vector<std::string> &arguments,
                       const std::function<void(const std::string &)> &function) {
    for (const std::string &argument : arguments) {
        if (argument != "-") {
            function(argument);
            continue;
        }
        line_input in(argument);
        for (std::string_view line; in.next(&line);) {
            function(std::string(line));
        }
    }
}

int log_to_standard_error(int, const char *format, ...) {
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    vc_sanitize(line); // without an allocation, which might fail in the engine's midst
    std::fprintf(stderr, "%s: %s\n", program_name, line);
    return 0;
}

std::string file_problem(const std::string &path, uint32_t error) {
    namespace fs = std::filesystem;
    char native[4096];
    std::error_code ignored;
    if (error == platform::error_access_denied &&
        platform::path_native(path.c_str(), native, sizeof native) == 0) {
        const fs::file_status is = fs::status(native, ignored);
        if (fs::is_directory(is)) {
            return "is a folder";
        }
        if (fs::is_other(is)) {
            return "is a pipe or a device, which is read as standard input alone";
        }
    }
    return std::strerror(platform::errno_of(error));
}

std::string file_error(const std::string &path, uint32_t error) {
    return path + ": " + file_problem(path, error);
}

void require_directory(const std::string &path, const std::string &advice) {
    uint32_t attributes = 0;
    const uint32_t error = platform::path_attributes(path.c_str(), &attributes);
    if (error && !is_missing(error)) {
        throw failure(file_error(path, error));
    }
    if (attributes != platform::attribute_directory) {
        throw failure(path + ": is no folder; " + advice);
    }
}

static exit_status run_or_complain(const program_frame &frame, int argc, char **argv) {
    try {
        return finished(run_command_line(frame, argc, argv));
    } catch (const std::bad_alloc &) {
        throw;
    } catch (const std::exception &what) {
        complain(what.what());
        return exit_status::failed;
    }
}

int run_program(const program_frame &frame, int argc, char **argv) {
    set_program_name(frame.name);
    engine_messages::begin(log_to_standard_error);
    try {
        return static_cast<int>(run_or_complain(frame, argc, argv));
    } catch (const std::bad_alloc &) { // also of a complaint
        std::fprintf(stderr, "%s: there is not enough memory\n", program_name);
        return static_cast<int>(exit_status::failed);
    }
}

} // namespace quillfence::programs
