#include "snapshot.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "configuration.h"
#include "frozen_domains.h"
#include "frozen_list.h"
#include "frozen_patterns.h"
#include "frozen_ranges.h"
#include "is_local_domain.h"
#include "known_sender_forgery_funcs.h"
#include "quillfence-file.h"
#include "revision.h"
#include "snapshot_file.h"
#include "vc_list.h"
#include "vc_log.h"
#include "vc_stringutils.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "snapshot";

namespace {

// A configuration while it is read.
struct loading {
    frozen_files *files;
    size_t room; // in files->rows
    snapshot_report *report;
    bool failed; // no memory, or a change
    uint64_t form_bytes_left;
    uint64_t largest; // file that is read
};

} // namespace

static void no_memory(loading *l) {
    QF_ERRNO_AS("snapshot_load", ENOMEM);
    l->failed = true;
}

// --- the report ---

static bool keep_unread(snapshot_report *report, const char *path, uint32_t error) {
    void *const larger =
        realloc(report->unread, (report->unread_count + 1) * sizeof *report->unread);
    if (!larger) {
        return false;
    }
    report->unread = static_cast<unread_file *>(larger);
    char *const copy = strdup(path);
    if (copy) {
        report->unread[report->unread_count++] = {copy, error};
    }
    return copy;
}

void snapshot_report_release(snapshot_report *report) {
    for (size_t i = 0; i < report->unread_count; ++i) {
        free(report->unread[i].path);
    }
    free(report->unread);
    free(report->changed);
    *report = {};
}

static void note_change(loading *l, const char *path) {
    l->failed = true;
    l->report->changed = strdup(path);
    if (!l->report->changed) {
        no_memory(l);
    }
}

// --- rows ---

static void release_row(frozen_file *row) {
    frozen_list_free(row->list);
    frozen_ranges_free(row->ranges);
    frozen_patterns_free(row->patterns);
    ksf_index_free(row->declarations);
    frozen_domains_free(row->domains);
    free(row->path);
    free(row->bytes);
    if (row->file != platform::invalid_file) {
        platform::file_close(row->file);
    }
}

// Room for one row more.
static bool make_room(loading *l) {
    if (l->files->row_count < l->room) {
        return true;
    }
    const size_t room = l->room ? 2 * l->room : 32;
    void *const larger = realloc(l->files->rows, room * sizeof(frozen_file));
    if (larger) {
        l->files->rows = static_cast<frozen_file *>(larger);
        l->room = room;
    }
    return larger;
}

static frozen_file *find_row(const loading *l, const char *path) {
    for (size_t i = 0; i < l->files->row_count; ++i) {
        if (strcmp(l->files->rows[i].path, path) == 0) {
            return &l->files->rows[i];
        }
    }
    return nullptr;
}

// Reads a path that may be there already. A large file is kept open if the path is a map's.
static void read_path(loading *l, const char *path, bool is_map = false) {
    if (l->failed || find_row(l, path)) {
        return;
    }
    frozen_file row = {};
    row.path = strdup(path);
    if (!row.path || !make_room(l)) {
        free(row.path);
        no_memory(l);
        return;
    }
    uint32_t error = 0;
    const snapshot_reading done = __read_frozen_file(&row, {l->largest, is_map}, &error);
    if (done == snapshot_reading::kept) {
        l->files->rows[l->files->row_count++] = row;
        return;
    }
    if (done == snapshot_reading::changed) {
        note_change(l, path);
    } else if (done == snapshot_reading::no_memory ||
               (error && !keep_unread(l->report, path, error))) {
        no_memory(l);
    }
    release_row(&row);
}

static void read_in(loading *l, const char *directory, const char *name) {
    const heap_string path(__build_path(directory, name));
    if (path) {
        read_path(l, path.get());
    } else {
        l->failed = true;
    }
}

// --- what is read ---

static bool decides_something(const configuration_file &file) {
    switch (file.kind) {
    case file_kind::other_list:
    case file_kind::mail_log:
    case file_kind::daily_counters:
    case file_kind::hourly_counters:
        return false;
    default:
        return true;
    }
}

static bool is_of_users(const configuration_file &file) {
    return file.kind == file_kind::addresses || file.kind == file_kind::ips ||
           file.kind == file_kind::ranges;
}

static void read_catalogue(loading *l, const char *user_dir) {
    for (const configuration_file &file : configuration_files) {
        if (decides_something(file)) {
            read_path(l, file.path);
        }
        if (!is_empty(user_dir) && is_of_users(file)) {
            read_in(l, user_dir, path_in_base(file));
        }
    }
}

// The path at which the lookup finds a map, which joins with "/" whatever stands there; null
// without memory.
static char *path_of_map(const char *name) {
    char *path = nullptr;
    return vc_asprintf(&path, "%s/%s", quillfence_block_maps_dir, name) < 0 ? nullptr : path;
}

// Reads the maps that a control file names.
static void read_named_maps(loading *l, const configuration_file &names, uint32_t *left) {
    const frozen_file *const row = find_row(l, names.path);
    if (!row || !row->bytes || !row->size) {
        return;
    }
    vc_list_entry *list = nullptr;
    if (!vc_list_from_string_by_char(&list, row->bytes, row->size, '\n')) {
        l->failed = true;
    }
    for (const vc_list_entry *entry = list; entry && *left && !l->failed; entry = entry->next) {
        const heap_string path(path_of_map(static_cast<const char *>(entry->data)));
        if (!path) {
            no_memory(l);
            break;
        }
        --*left;
        read_path(l, path.get(), true);
    }
    if (list) {
        vc_destroy_list(&list, free);
    }
}

static void read_maps(loading *l) {
    uint32_t left = most_frozen_maps;
    for (const configuration_file &file : configuration_files) {
        if (file.kind == file_kind::map_names && !l->failed) {
            read_named_maps(l, file, &left);
        }
    }
}

// --- forms ---

// What forms may take beside the bytes: with those, three times the files' size and 50 MiB, of
// which two are for the rows.
static constexpr uint64_t spare_form_bytes = 48u << 20;

// Whether there is room for a form; counts it.
static bool has_room(loading *l, uint64_t form_size) {
    const bool fits = form_size <= l->form_bytes_left;
    l->form_bytes_left -= fits ? form_size : 0;
    return fits;
}

static void make_list(loading *l, frozen_file *row, list_matcher matcher) {
    row->list = frozen_list_make(row->bytes, row->size, matcher);
    if (!row->list) {
        no_memory(l);
    } else if (!has_room(l, frozen_list_size(row->list))) {
        frozen_list_free(row->list);
        row->list = nullptr;
    }
}

static void make_ranges(loading *l, frozen_file *row) {
    if (!frozen_ranges_make(row->bytes, row->size, &row->ranges)) {
        no_memory(l);
    } else if (row->ranges && !has_room(l, frozen_ranges_size(row->ranges))) {
        frozen_ranges_free(row->ranges);
        row->ranges = nullptr;
    }
}

static void make_patterns(loading *l, frozen_file *row) {
    if (!frozen_patterns_make(row->bytes, row->size, &row->patterns)) {
        no_memory(l);
    } else if (row->patterns && !has_room(l, frozen_patterns_size(row->patterns))) {
        frozen_patterns_free(row->patterns);
        row->patterns = nullptr;
    }
}

static void make_declarations(loading *l, frozen_file *row) {
    if (!ksf_index_make(row->bytes, row->size, &row->declarations)) {
        l->failed = true;
    } else if (row->declarations && !has_room(l, ksf_index_size(row->declarations))) {
        ksf_index_free(row->declarations);
        row->declarations = nullptr;
    }
}

static void make_domains(loading *l, const char *path) {
    frozen_file *const row = find_row(l, path);
    if (!row || !row->bytes || l->failed) {
        return;
    }
    row->domains = frozen_domains_make(row->bytes, row->size);
    if (!row->domains) {
        no_memory(l);
    } else if (!has_room(l, frozen_domains_size(row->domains))) {
        frozen_domains_free(row->domains);
        row->domains = nullptr;
    }
}

static void make_form(loading *l, const configuration_file &file, const char *path) {
    frozen_file *const row = find_row(l, path);
    if (!row || !row->bytes || l->failed) {
        return;
    }
    if (is_list(file)) {
        make_list(l, row, file.matcher);
    } else if (file.kind == file_kind::ranges) {
        make_ranges(l, row);
    } else if (file.kind == file_kind::patterns) {
        make_patterns(l, row);
    } else if (file.kind == file_kind::sender_networks) {
        make_declarations(l, row);
    }
}

static void make_forms(loading *l, const char *user_dir, const char *domain_table) {
    l->form_bytes_left = spare_form_bytes;
    for (size_t i = 0; i < l->files->row_count; ++i) {
        l->form_bytes_left += l->files->rows[i].bytes ? 2 * l->files->rows[i].size : 0;
    }
    for (const configuration_file &file : configuration_files) {
        make_form(l, file, file.path);
        if (!is_empty(user_dir) && is_of_users(file) && !l->failed) {
            const heap_string path(__build_path(user_dir, path_in_base(file)));
            path ? make_form(l, file, path.get()) : no_memory(l);
        }
    }
    if (domain_table) {
        make_domains(l, domain_table);
    }
}

// --- the whole ---

// The first path that is not what was read any more; null for none.
static const char *changed_path(const frozen_files *files) {
    for (size_t i = 0; i < files->row_count; ++i) {
        if (!__is_as_frozen(&files->rows[i])) {
            return files->rows[i].path;
        }
    }
    return nullptr;
}

static void compare_again(loading *l) {
    if (const char *const path = changed_path(l->files)) {
        note_change(l, path);
    }
}

int snapshot_is_current(const frozen_files *files) {
    return changed_path(files) == nullptr;
}

static void index_rows(loading *l) {
    frozen_files *const files = l->files;
    std::sort(
        files->rows, files->rows + files->row_count,
        [](const frozen_file &a, const frozen_file &b) { return strcmp(a.path, b.path) < 0; });
    if (!__set_revision(files) || !index_frozen_files(files)) {
        no_memory(l);
    }
}

frozen_files *snapshot_load(const char *user_dir, snapshot_report *report) {
    return __load_snapshot(user_dir, report, largest_frozen_file);
}

frozen_files *__load_snapshot(const char *user_dir, snapshot_report *report, uint64_t largest) {
    *report = {};
    auto *const files = static_cast<frozen_files *>(calloc(1, sizeof(frozen_files)));
    if (!files) {
        QF_ENOMEM();
        return nullptr;
    }
    loading l = {.files = files,
                 .room = 0,
                 .report = report,
                 .failed = false,
                 .form_bytes_left = 0,
                 .largest = largest};
    read_catalogue(&l, user_dir);
    read_maps(&l);
    const heap_string domain_table(__domain_table_path());
    if (domain_table) {
        read_path(&l, domain_table.get());
    }
    if (!l.failed) {
        compare_again(&l);
    }
    if (!l.failed) {
        make_forms(&l, user_dir, domain_table.get());
    }
    if (!l.failed) {
        index_rows(&l);
    }
    if (l.failed) {
        snapshot_free(files);
        return nullptr;
    }
    return files;
}

static uint64_t size_of_forms(const frozen_file &row) {
    return (row.list ? frozen_list_size(row.list) : 0) +
           (row.ranges ? frozen_ranges_size(row.ranges) : 0) +
           (row.patterns ? frozen_patterns_size(row.patterns) : 0) +
           (row.declarations ? ksf_index_size(row.declarations) : 0) +
           (row.domains ? frozen_domains_size(row.domains) : 0);
}

uint64_t snapshot_size(const frozen_files *files) {
    uint64_t size = sizeof *files + files->slot_count * sizeof *files->slots;
    for (size_t i = 0; i < files->row_count; ++i) {
        const frozen_file &row = files->rows[i];
        size += 2 * sizeof row + strlen(row.path) + 1; // there may be room for twice as many rows
        size += (row.bytes ? row.size + 1 : 0) + size_of_forms(row);
    }
    return size;
}

void snapshot_free(frozen_files *files) {
    if (!files) {
        return;
    }
    for (size_t i = 0; i < files->row_count; ++i) {
        release_row(&files->rows[i]);
    }
    free(files->rows);
    free(files->slots);
    free(files);
}

} // namespace quillfence
