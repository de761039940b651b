// The board's data-model store; see platform/include/ams_store.h. None of it is there yet.
#include "ams_store.h"

#include "refuse.h"

struct XmlTreeSet *gptXmlTrees;

struct XmlTreeSet *ShmPoolSrvInit(void) {
  REFUSE(nullptr);
}

struct XmlTreeSet *ShmPoolCliInit(void) {
  REFUSE(nullptr);
}

struct AmsTree *ams_mxmlLoadFile(void *, FILE *, void *) {
  REFUSE(nullptr);
}

void mxmlSetWrapMargin(int) { REFUSE(); }

int update_from_nvram(struct AmsTree *, int) { REFUSE(-1); }

int ams_mxml_load_to_staging(int) { REFUSE(-1); }

/* ---- reading ---- */

int ams_check_node(struct AmsTree *, const char *) { REFUSE(-1); }

int ams_get_node_attr(struct AmsTree *, const char *, const char *, char *value, size_t size) {
  if (size > 0) value[0] = '\0';
  REFUSE(-1);
}

int ams_get_first_child(struct AmsTree *, const char *, char *) { REFUSE(-1); }

int ams_get_next_child(struct AmsTree *, const char *, char *) { REFUSE(-1); }

int ams_get_node_value(struct AmsTree *, const char *, char **text) {
  *text = nullptr;
  REFUSE(-1);
}

int ams_read_withAttr(struct AmsTree *, const char *, int, char **text) {
  *text = nullptr;
  REFUSE(-1);
}

int ams_get_idxes(struct AmsTree *, const char *, char *list, size_t size) {
  if (size > 0) list[0] = '\0';
  REFUSE(-1);
}

int ams_get_array_maxIndex(struct AmsTree *, const char *, char *, size_t) { REFUSE(-1); }

int ams_mxml_get_leaf(const char *, char *, size_t) { REFUSE(-1); }

int ams_mxml_list_array(const char *, struct AmsArrayList *list) {
  list->count = 0;
  REFUSE(-1);
}

/* ---- writing ---- */

int ams_set_node_value(struct AmsTree *, const char *, const char *) { REFUSE(-1); }

int ams_sset_node_value(struct AmsTree *, const char *, const char *) { REFUSE(-1); }

int ams_mxml_fset_leaf(const char *, const char *) { REFUSE(-1); }

int ams_mxml_sset_leaf_int(const char *, int) { REFUSE(-1); }

int ams_add_obj(struct AmsTree *, const char *, char url[AMS_PATH_SIZE]) {
  url[0] = '\0';
  REFUSE(-1);
}

int ams_del_obj(struct AmsTree *, const char *) { REFUSE(-1); }

int ams_get_attr(struct AmsTree *, const char *, char *, size_t) { REFUSE(-1); }

int ams_set_attr(struct AmsTree *, const char *, const char *) { REFUSE(-1); }

int ams_write_begin(void) { REFUSE(-1); }

int ams_write_end(void) { REFUSE(-1); }

int ams_write_cancel(void) { REFUSE(-1); }

int ams_undo_note(struct AmsTree *, struct AmsUndo **, const char *) { REFUSE(-1); }

int ams_undo_end(struct AmsUndo *, int) { REFUSE(-1); }

int ams_save_xml(struct AmsTree *, const char *) { REFUSE(-1); }

int ams_align_xml(struct AmsTree *, const char *) { REFUSE(-1); }
