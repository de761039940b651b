// What the fuzz targets share that are a process with the store: its start, and data-model files.
#pragma once

#include "ams_print.h"
#include "ams_store.h"
#include "check.h"

inline bool LoadModel(FILE *file) {
  Check(file != nullptr, "no file of a data model");
  AmsTree *root = ams_mxmlLoadFile(nullptr, file, nullptr);
  fclose(file);
  if (root != nullptr) gptXmlTrees->root = root;
  return root != nullptr;
}

inline void LoadSmallModel() {
  Check(LoadModel(fopen(FUZZ_MODEL, "re")), "the data model does not load");
}

/* Records are made, not written. */
inline void Serve() {
  for (PrtMapEntry *row = DF_PRT_MAP; row->name != nullptr; ++row) row->level = 6;
  gptXmlTrees = ShmPoolSrvInit();
  Check(gptXmlTrees != nullptr, "no store: run it through script/fuzz");
}
