// Images of firmware. One is a line, "sha256 " and the 64 hexadecimal digits of the digest, and
// behind its line feed the content that the digest is of: an order brings one file, so the digest
// travels in it. Any thread. Functions return 0, or -1 and the reason in `why`.
#pragma once

#include <string>

#include "vermgt.h"

constexpr size_t kImageMax = 64 << 20; /* bytes: it has to fit into memory beside the services */

/* The whole of a plain file of at most kImageMax bytes. */
int ImageRead(const char *path, std::string *bytes, std::string *why);

/* The image of `content`. */
std::string ImageOf(const std::string &content);

/* Whether the digest is the content's, and there is content. */
int ImageCheck(const std::string &image, std::string *why);

/* Writes the file whole and to the disk; half a file is removed. */
int ImageWrite(const char *path, const std::string &image, std::string *why);

/* Flashing has two halves, so that the image that runs is never half an image: Prepare writes the
   new one beside it, Switch puts it in its place, Drop (of what may not be there) forgets it. */
int ImagePrepare(const std::string &image, std::string *why);
int ImageSwitch(std::string *why);
void ImageDrop();

/* {"sha256": digits, "bytes": of the content} of the image that is flashed, or null. */
Json ImageFlashed();
