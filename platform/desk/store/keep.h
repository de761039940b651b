// Keeping the configuration in nvram.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "key.h"
#include "nvram_desk.h"

/* What the open write changes of the configuration; `of_file`: the data-model file has the row,
   too; `highest` is the highest number that the array ever used. 0 or -1 (logged): what is kept of
   the row cannot be read. */
void KeepLeaf(const Key &key, std::string_view value);
int KeepAdded(const Key &array, uint32_t number);
int KeepDeleted(const Key &array, uint32_t number, bool of_file, uint32_t highest);

/* Beside the configuration, what is kept of a node under "PREFIX:PATH". */
constexpr char kKeptNotify[] = "notify:", kKeptChanges[] = "changed:";
void KeepBeside(const char *prefix, const Key &key, const std::optional<std::string> &value);

/* What nvram keeps of a leaf once the open write is done, and making it that again. */
int KeepRead(const Key &key, std::optional<std::string> *value); /* 0 or -1 (logged) */
int KeepAgain(const Key &key, const std::optional<std::string> &value);

/* Makes these changes in nvram, all or none, and forgets them. `before` gets what they replace. 0,
   also when there are none, or -1 (logged). */
int KeepApply(std::vector<NvramChange> *before);
void KeepNothing(); /* forgets them only */

/* Takes back what KeepApply did; what cannot be taken back is logged. */
void KeepTakeBack(const std::vector<NvramChange> &before);
