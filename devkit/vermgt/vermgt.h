// The version manager of the desk: what an image is, and what vermgt and vermgtctl say to each
// other.
//
// An image is one line, "sha256 " and the 64 hexadecimal digits of the digest, and behind its line
// feed the content that the digest is of: an order brings one file, so the digest travels in it.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

constexpr char kVersionManager[] = "tdsmgr:vermgt";
enum : uint32_t {
  kVersionOrder = 0xfff04,    /* 320 bytes, the image's name at 192; answered with a state word */
  kVersionState = 0xfff05,    /* a state word with its NUL; answered with one */
  kVersionControl = 0x110200, /* of vermgtctl: a JSON object each way */
};

/* Exit statuses of vermgtctl, and the "status" of an answer to it. */
enum { kVersionDone = 0, kVersionRefused = 1, kVersionUsage = 2, kVersionNoAnswer = 3 };

using VersionJson = nlohmann::ordered_json;

/* ---- images; any thread. 0, or -1 and the reason in `why` ---- */

constexpr size_t kImageMax = 64 << 20; /* bytes: it has to fit into memory beside the services */
constexpr char kImageFlashed[] = "/var/persist/firmware/image";

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
VersionJson ImageFlashed();
