#pragma once

namespace corvane::pelto {

/// Readies libcurl, which wipes from then on what it frees. Whoever uses libcurl's handles does this first;
/// repeating it costs nothing.
void initialiseCurl();

}  // namespace corvane::pelto
