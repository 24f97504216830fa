#include "html_page.h"

#include <utility>

namespace quillfence::programs {

// The page may load nothing and run nothing.
static constexpr char head[] = R"(<!doctype html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'">
<style>
:root { color-scheme: light dark; --page: #fbfbf9; --ink: #1f2328; --soft: #5f666d;
  --line: #d9dad6; --raised: #f1f1ed; --reject: #b3261e; --accept: #1e7145; --undecided: #8a5a00; }
@media (prefers-color-scheme: dark) {
  :root { --page: #16181c; --ink: #e6e6e3; --soft: #a0a6ad; --line: #33373d;
    --raised: #202329; --reject: #ff8a80; --accept: #7fd1a3; --undecided: #f0c060; } }
* { box-sizing: border-box; }
body { margin: 0 auto; padding: 2rem 1.5rem 4rem; max-width: 62rem; background: var(--page);
  color: var(--ink); font: 16px/1.5 system-ui, "Segoe UI", sans-serif; overflow-wrap: anywhere; }
header { --verdict: var(--ink); border-left: .5rem solid var(--verdict); padding: .25rem 0 .25rem 1rem; }
header.reject { --verdict: var(--reject); } header.accept { --verdict: var(--accept); }
header.undecided { --verdict: var(--undecided); }
h1 { color: var(--verdict); font-size: 1.6rem; font-weight: 600; line-height: 1.3; margin: 0; }
h2 { font-size: 1.1rem; font-weight: 600; margin: 2.25rem 0 .5rem; }
p { margin: .25rem 0; color: var(--soft); }
table { border-collapse: collapse; width: 100%; }
th, td { padding: .35rem .75rem; text-align: left; vertical-align: top; font-weight: 400; }
th:first-child, td:first-child { padding-left: .5rem; }
thead th { color: var(--soft); font-size: .9rem; }
tbody tr { border-top: 1px solid var(--line); }
tbody th { width: 30%; }
.facts th { width: 9rem; color: var(--soft); white-space: nowrap; }
.counts tbody th { width: 1%; font-variant-numeric: tabular-nums; }
.counts th, .counts td:not(:last-child) { white-space: nowrap; }
.time { white-space: nowrap; width: 1%; font-variant-numeric: tabular-nums; }
.told { background: var(--raised); }
.told th, .told .did { font-weight: 600; }
ul { margin: .25rem 0 0; padding-left: 1.1rem; } main > ul { padding-left: 1.6rem; }
header ul { margin: .5rem 0 0; padding: 0; list-style: none; }
pre { margin: 0; padding: .5rem .75rem; background: var(--raised); white-space: pre-wrap; }
pre, .names tbody th { font-family: ui-monospace, "Cascadia Mono", monospace;
  font-size: .9rem; }
@media (max-width: 36rem) {
  body { padding: 1rem .75rem 3rem; } h1 { font-size: 1.3rem; }
  th, td { padding: .35rem .4rem; } .facts tbody th { width: 6.5rem; }
  .counts td:not(:last-child) { white-space: normal; }
  .names tbody tr, .names tbody th, .names td { display: block; width: auto; }
  .names thead { display: none; } .names tbody th { padding-bottom: 0; font-weight: 600; }
  .names td { padding: 0 .4rem .35rem .5rem; } }
</style>
)";

void html_page::begin(std::string_view title) {
    raw(head).element("title", title);
    raw("\n</head>\n<body>\n");
}

std::string html_page::end() {
    raw("</body>\n</html>\n");
    return std::move(html_);
}

void html_page::append_escaped(std::string_view text) {
    for (const char c : text) {
        switch (c) {
        case '&':
            html_ += "&amp;";
            break;
        case '<':
            html_ += "&lt;";
            break;
        case '>':
            html_ += "&gt;";
            break;
        case '"':
            html_ += "&quot;";
            break;
        default:
            html_ += c;
        }
    }
}

} // namespace quillfence::programs
