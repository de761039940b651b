// What the tests of the data-model store share: its calls with plain strings for results ("(none)"
// for a call that failed), and scripts of them.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "ams_store.h"

#define IGD "InternetGatewayDevice."

/* Where the model and the scripts lie; the first argument of a test program, if any. */
extern std::string data_folder;

extern AmsTree *root; /* of the tree that is loaded */

std::string FileText(const std::string &name);

/* A tree with every kind of node. */
std::string Model();

AmsTree *Load(const std::string &xml);

/* A node's text form, the separator shown as "|". */
std::string Text(const std::string &path);

/* A leaf's bare value. */
std::string Leaf(const std::string &path);

/* The numbers of an array's instances. */
std::string Indexes(const std::string &array);

/* Each test starts with a tree of Model(), and nothing kept. */
class Store : public testing::Test {
 protected:
  static void SetUpTestSuite();
  void SetUp() override;
};

/* Scripts: a file of the folder is a case, and there are `least` at least.

   A line is "VERB PATH VALUE => RESULT"; a path that begins with a dot, or is "/", begins at the
   root; a number before the verb repeats it. \\HH is a byte. Each file starts with a tree of
   Model(), and nothing kept. */
void RunScripts(const std::string &folder, int least);
