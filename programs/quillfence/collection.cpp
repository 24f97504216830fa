#include "collection.h"

#include <algorithm>
#include <sstream>

#include "file_digest.h"
#include "findings_output.h"
#include "json_writer.h"
#include "open_file.h"
#include "program.h"
#include "progress.h"
#include "tar_writer.h"
#include "utc_text.h"

namespace quillfence::programs {

using decision::json_writer;
using verification::severity;

// --- the manifest -------------------------------------------------------------------------------

static void member(json_writer &json, const char *name, const std::string &text) {
    if (!text.empty()) {
        json.name(name);
        json.text(text);
    }
}

static void file_member(json_writer &json, const collected_file &file) {
    json.begin_flat_object();
    member(json, "name", file.name);
    member(json, "asked_as", file.asked_as);
    member(json, "kind", file.kind);
    json.name("bytes");
    json.number(file.size);
    member(json, "sha256", file.digest);
    member(json, "time", decision::utc_text(file.time));
    member(json, "link", file.link);
    json.end_object();
}

static void texts(json_writer &json, const char *name, const std::vector<std::string> &all) {
    json.name(name);
    json.begin_array();
    for (const std::string &text : all) {
        json.text(text);
    }
    json.end_array();
}

// Names with a second text, whose member has a name of its own.
static void reasons(json_writer &json, const char *name, const char *why,
                    const std::vector<named_reason> &all) {
    json.name(name);
    json.begin_array();
    for (const named_reason &each : all) {
        json.begin_flat_object();
        member(json, "name", each.name);
        member(json, why, each.why);
        if (each.bytes) {
            json.name("bytes");
            json.number(each.bytes);
        }
        json.end_object();
    }
    json.end_array();
}

static void registry_member(json_writer &json, const collection &all) {
    json.name("registry");
    json.begin_object();
    member(json, "from", all.registry_from);
    member(json, "file", all.registry.values ? "registry.reg" : "");
    json.name("values");
    json.number(uint64_t{all.registry.values});
    texts(json, "failures", all.registry.failures);
    json.end_object();
}

static void findings_member(json_writer &json, const verification::tree &verified) {
    json.name("verify");
    json.begin_flat_object();
    member(json, "file", "verify.json");
    json.name("errors");
    json.number(uint64_t{count_of(verified, severity::error)});
    json.name("warnings");
    json.number(uint64_t{count_of(verified, severity::warning)});
    json.end_object();
}

static void unknown_member(json_writer &json, const collected_tree &tree) {
    json.name("unknown");
    json.begin_object();
    json.name("files");
    json.number(tree.unknown);
    texts(json, "names", tree.unknown_names);
    json.end_object();
}

std::string manifest_of(const collection &all) {
    std::string text;
    json_writer json(text, decision::json_layout::indented);
    json.begin_object();
    member(json, "schema", manifest_schema);
    member(json, "time", all.time);
    member(json, "version", QUILLFENCE_VERSION);
    member(json, "base", all.base);
    json.name("files");
    json.begin_array();
    for (const collected_file &file : all.tree.files) {
        file_member(json, file);
    }
    json.end_array();
    reasons(json, "links", "link", all.tree.links);
    texts(json, "missing", all.tree.missing);
    reasons(json, "unreadable", "error", all.tree.failures);
    reasons(json, "left_out", "why", all.tree.left_out);
    unknown_member(json, all.tree);
    registry_member(json, all);
    findings_member(json, all.verified);
    json.end_object();
    json.finish();
    return text + '\n';
}

// --- the archive --------------------------------------------------------------------------------

namespace {

class archive {
  public:
    archive(FILE *to, const std::string &path, const collection &all)
        : writer_(to), path_(path), all_(all), bar_("writing " + path, total_of(all)) {}

    std::string write() {
        add_texts();
        for (const std::string &folder : all_.tree.folders) {
            writer_.add_folder(folder, 0);
        }
        for (const collected_file &file : all_.tree.files) {
            check();
            if (!copy(file)) {
                return file.name;
            }
        }
        writer_.finish();
        check();
        return {};
    }

  private:
    static uint64_t total_of(const collection &all) {
        uint64_t total = 0;
        for (const collected_file &file : all.tree.files) {
            total += file.size;
        }
        return total;
    }
    void add_texts() {
        writer_.add_file("manifest.json", manifest_of(all_), 0);
        std::ostringstream findings;
        verification::write_json(all_.verified, findings);
        writer_.add_file("verify.json", findings.str(), 0);
        if (all_.registry.values) {
            writer_.add_file("registry.reg", all_.registry.bytes, 0);
        }
    }
    void check() const {
        if (!writer_.problem().empty()) {
            throw failure(path_ + ": " + writer_.problem());
        }
    }
    // False when it is not what it was when it was digested; what a log has more by now is no
    // difference.
    bool copy(const collected_file &file) {
        data_files::open_file opened;
        data_files::running_digest digest;
        std::vector<char> piece(64 * 1024);
        writer_.begin_file(file.name, file.size, file.time);
        check();
        if (opened.open(file.path)) {
            return false;
        }
        for (uint64_t left = file.size; left;) {
            size_t got = 0;
            const auto wanted = static_cast<size_t>(std::min<uint64_t>(piece.size(), left));
            if (opened.read(piece.data(), wanted, &got) || !got) {
                return false;
            }
            digest.add(piece.data(), got);
            writer_.write(piece.data(), got);
            check();
            left -= got;
            bar_.show(done_ += got);
        }
        writer_.end_file();
        return digest.text() == file.digest && (file.kind == "mail log" || is_at_end(opened));
    }
    static bool is_at_end(const data_files::open_file &file) {
        char byte = 0;
        size_t got = 0;
        return !file.read(&byte, 1, &got) && !got;
    }

    decision::tar_writer writer_;
    std::string path_;
    const collection &all_;
    progress bar_;
    uint64_t done_ = 0;
};

} // namespace

std::string write_collection(FILE *to, const std::string &path, const collection &all) {
    return archive(to, path, all).write();
}

} // namespace quillfence::programs
