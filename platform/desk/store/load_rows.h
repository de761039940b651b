// The rows of a data-model file.
#pragma once

#include <pugixml.hpp>

#include "load_element.h"

/* Writes all rows of the tree. -1 with the loader's error set. */
int LoadRows(Loader *loader, pugi::xml_node root);
