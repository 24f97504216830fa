#include "what_if.h"

#include "file_output.h"
#include "named_list.h"
#include "program.h"
#include "text.h"
#include "vc_text.h"

namespace quillfence::programs {

static std::string_view trimmed(std::string_view text) {
    while (!text.empty() && is_space(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && is_space(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

static void refuse_wrong_line(const std::string &line) {
    if (trimmed(line).empty() || line.find('\n') != std::string::npos) {
        throw failure(data_files::quoted(line) + " is no line of a list");
    }
}

// What the list holds so far, with what was changed before.
std::string &what_if::text_of(const std::string &path) {
    const auto [place, fresh] = texts_.try_emplace(path);
    if (fresh) {
        const uint32_t error = data_files::read_file(path, &place->second);
        if (error && !data_files::is_missing(error)) {
            throw failure(file_error(path, error));
        }
    }
    return place->second;
}

void what_if::add(const std::string &list, const std::string &line) {
    refuse_wrong_line(line);
    const std::string path = path_of_list(list, user_dir_);
    std::string &text = text_of(path);
    if (!text.empty() && text.back() != '\n') {
        text += '\n';
    }
    text += line + '\n';
    changes_.push_back("what if " + path + " had the line \"" + line + "\"");
}

void what_if::remove(const std::string &list, const std::string &line) {
    refuse_wrong_line(line);
    const std::string path = path_of_list(list, user_dir_);
    std::string &text = text_of(path);
    std::string kept;
    uint64_t removed = 0;
    for (const data_files::text_line &each : data_files::lines_of(text)) {
        if (trimmed(each.text) == trimmed(line)) {
            ++removed;
        } else {
            kept.append(each.text) += '\n';
        }
    }
    if (!removed) {
        throw failure(path + ": there is no line " + data_files::quoted(line) + " to leave out");
    }
    text = kept;
    changes_.push_back("what if " + path + " did not have the line \"" + line + "\"");
}

const file_substitute *what_if::substitutes() {
    if (texts_.empty()) {
        return nullptr;
    }
    folder_.emplace();
    for (const auto &[path, text] : texts_) {
        copies_.push_back(folder_->path() + "/" + std::to_string(copies_.size()));
        file_output out(copies_.back());
        out.write(text.data(), text.size());
        out.commit();
    }
    size_t row = 0;
    for (const auto &[path, text] : texts_) {
        rows_.push_back({path.c_str(), copies_[row++].c_str()});
    }
    rows_.push_back({nullptr, nullptr});
    return rows_.data();
}

} // namespace quillfence::programs
