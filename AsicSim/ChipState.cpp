#include "AsicSim/ChipState.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "Orb/CharRange.h"
#include "Orb/GenericValueText.h"

namespace AsicSim {

namespace {

constexpr std::string_view stateMagic = "l3tunnel-chip-state";

uint64_t fnv1a(std::string_view bytes) {
   uint64_t h = 0xcbf29ce484222325ull;
   for (unsigned char c : bytes) {
      h ^= c;
      h *= 0x100000001b3ull;
   }
   return h;
}

void putString(std::string& out, std::string_view s) {
   out.append(std::to_string(s.size())).append(":").append(s);
}

// A message on one line: control bytes and bytes beyond ASCII (the file's
// own text, echoed) are escaped.
std::string oneLine(std::string_view what) {
   std::string out;
   for (unsigned char c : what) {
      if (c == '\n') {
         out += "\\n";
      } else if (c >= 0x20 && c < 0x7f) {
         out += char(c);
      } else {
         char hex[8];
         std::snprintf(hex, sizeof hex, "\\x%02x", c);
         out += hex;
      }
   }
   return out;
}

// The offset of the first byte of `s` that is not well-formed UTF-8, or npos.
size_t utf8Fault(std::string_view s) {
   for (size_t i = 0; i < s.size();) {
      const unsigned char c = s[i];
      uint32_t n = 0, cp = 0, min = 0;
      if (c < 0x80) {
         ++i;
         continue;
      } else if ((c & 0xE0) == 0xC0) {
         n = 1, cp = c & 0x1F, min = 0x80;
      } else if ((c & 0xF0) == 0xE0) {
         n = 2, cp = c & 0x0F, min = 0x800;
      } else if ((c & 0xF8) == 0xF0) {
         n = 3, cp = c & 0x07, min = 0x10000;
      } else {
         return i;
      }
      if (s.size() - i <= n) return i;
      for (uint32_t k = 1; k <= n; ++k) {
         const unsigned char d = s[i + k];
         if ((d & 0xC0) != 0x80) return i;
         cp = (cp << 6) | (d & 0x3F);
      }
      // Overlong forms, surrogates and values past Unicode's range.
      if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return i;
      i += n + 1;
   }
   return std::string_view::npos;
}

// The text cursor of the framework, with faults reported by file and line:
// the line a record starts on, counted in the file (strings may hold line
// ends of their own).
class StateReader {
public:
   StateReader(const std::string& path, std::string_view file, std::string_view text)
       : path_(path), file_(file), r_(text) {}

   [[noreturn]] void failAt(const std::string& what, size_t position) const {
      const size_t line =
          1 +
          size_t(std::count(file_.begin(), file_.begin() + std::min(position, file_.size()), '\n'));
      throw std::runtime_error(path_ + ": " + oneLine(what) + " (line " + std::to_string(line) +
                               ")");
   }
   [[noreturn]] void fail(const std::string& what) const { failAt(what, record_); }
   // Runs a read of the cursor, whose faults come back as this file's.
   template <class F>
   auto checked(F&& f) {
      try {
         return f();
      } catch (const std::range_error& e) {
         fail(e.what());
      }
   }
   bool atEnd() const { return r_.atEnd(); }
   size_t position() const { return r_.position(); }
   void recordStart() { record_ = r_.position(); }
   void skip(size_t n) { r_.advance(n); }
   std::string_view word() {
      const std::string_view rest = r_.rest();
      const size_t n = std::min(rest.find(' '), rest.find('\n'));
      if (n == 0) fail("a field is missing");
      const std::string_view w = rest.substr(0, n == rest.npos ? rest.size() : n);
      r_.advance(w.size());
      return w;
   }
   uint32_t number() {
      return checked([&] { return r_.readUnsigned(0xFFFFFFFFu); });
   }
   // `what` names the string in a fault.
   std::string_view string(std::string_view what) {
      const uint32_t n = number();
      checked([&] { r_.needString(":"); });
      if (n > r_.rest().size()) fail(std::string(what) + " runs past the end line");
      const std::string_view s = r_.rest().substr(0, n);
      if (const size_t bad = utf8Fault(s); bad != s.npos) {
         char hex[8];
         std::snprintf(hex, sizeof hex, "0x%02x", static_cast<unsigned char>(s[bad]));
         fail(std::string(what) + " is not UTF-8 (byte " + hex + " at " + std::to_string(bad) +
              ")");
      }
      r_.advance(n);
      return s;
   }
   void blank() {
      checked([&] { r_.needString(" "); });
   }
   void lineEnd() {
      checked([&] { r_.needString("\n"); });
   }

private:
   const std::string& path_;
   std::string_view file_;
   Orb::CharRange r_;
   size_t record_ = 0;
};

// The file a path finally names, following symbolic links, so that saving
// replaces the link's target and keeps the link.
std::string finalTarget(const std::string& path) {
   std::string p = path;
   for (int hops = 0;; ++hops) {
      struct stat st;
      if (::lstat(p.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return p;
      if (hops == 40)
         throw std::runtime_error(path +
                                  ": cannot replace the state file: " + std::strerror(ELOOP));
      std::string target(size_t(st.st_size ? st.st_size : 256) + 1, '\0');
      const ssize_t n = ::readlink(p.c_str(), target.data(), target.size());
      if (n < 0)
         throw std::runtime_error(path + ": cannot read the link " + p + ": " +
                                  std::strerror(errno));
      target.resize(size_t(n));
      const auto slash = p.find_last_of('/');
      p = target.starts_with('/') || slash == std::string::npos ? target
                                                                : p.substr(0, slash + 1) + target;
   }
}

void writeFileAtomically(const std::string& path, const std::string& bytes) {
   const std::string target = finalTarget(path);
   const std::string tmp = target + ".tmp." + std::to_string(::getpid());
   auto fail = [&](const char* what) {
      const std::string reason = std::strerror(errno);
      ::unlink(tmp.c_str());
      throw std::runtime_error(path + ": cannot " + what + ": " + reason);
   };
   const int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
   if (fd < 0) fail("create the new state file");
   size_t done = 0;
   while (done < bytes.size()) {
      const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
         ::close(fd);
         fail("write the new state file");
      }
      done += size_t(n);
   }
   if (::fsync(fd) != 0) {
      ::close(fd);
      fail("flush the new state file");
   }
   ::close(fd);
   if (::rename(tmp.c_str(), target.c_str()) != 0) fail("replace the state file");
   // The rename itself must reach the disk too.
   const auto slash = target.find_last_of('/');
   const std::string dir = slash == std::string::npos ? "." : target.substr(0, slash + 1);
   const int dfd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY);
   if (dfd >= 0) {
      ::fsync(dfd);
      ::close(dfd);
   }
}

// The whole file, or a fault naming the reason it cannot be read.
std::string fileRead(const std::string& path) {
   auto fail = [&] {
      throw std::runtime_error(path + ": cannot open the state file: " + std::strerror(errno));
   };
   const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
   if (fd < 0) fail();
   std::string text;
   char buf[65536];
   for (;;) {
      const ssize_t n = ::read(fd, buf, sizeof buf);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
         const int e = errno;
         ::close(fd);
         errno = e;
         fail();
      }
      if (n == 0) break;
      text.append(buf, size_t(n));
   }
   ::close(fd);
   return text;
}

}  // namespace

void chipStateSave(const std::string& path, const HwTables& tables) {
   std::string out(stateMagic);
   out.append(" ").append(std::to_string(Chip::stateVersion)).append("\n");
   for (auto& [id, t] : tables) {
      out.append("table ").append(std::to_string(id.second)).append(" ");
      out.append(std::to_string(t->numEntries())).append(" ");
      putString(out, id.first);
      out.append("\n");
      for (Asic::Index i = 0; i < t->numEntries(); ++i) {
         const std::string* row = t->row(i);
         if (!row) continue;
         const Orb::GenericValue& key = t->rowKey(i);
         out.append("row ").append(std::to_string(i)).append(" ");
         putString(out, *row);
         out.append(" ");
         putString(out, key ? key.type().name() : std::string_view());
         out.append(" ");
         putString(out, key ? key.text() : std::string());
         out.append("\n");
      }
   }
   char sum[32];
   std::snprintf(sum, sizeof sum, "%016llx", static_cast<unsigned long long>(fnv1a(out)));
   out.append("end ").append(sum).append("\n");
   writeFileAtomically(path, out);
}

HwTables chipStateLoad(const std::string& path) {
   const std::string text = fileRead(path);

   StateReader r(path, text, text);
   if (r.atEnd() || r.word() != stateMagic) r.fail("not a chip state file");
   r.blank();
   const uint32_t version = r.number();
   if (version != Chip::stateVersion)
      r.fail("state file version " + std::to_string(version) + ", this program reads version " +
             std::to_string(Chip::stateVersion));
   r.lineEnd();
   // The checksum first: nothing of a damaged file is read.
   const size_t endLine = text.rfind("\nend ");
   if (endLine == std::string::npos)
      r.failAt("the file is cut short: no end line", text.empty() ? 0 : text.size() - 1);
   {
      const size_t at = endLine + 1;
      const std::string_view tail = std::string_view(text).substr(at + 4);
      const size_t lineEnd = tail.find('\n');
      char want[32];
      std::snprintf(want, sizeof want, "%016llx",
                    static_cast<unsigned long long>(fnv1a(std::string_view(text).substr(0, at))));
      if (tail.substr(0, lineEnd) != want) r.failAt("checksum mismatch: the file is damaged", at);
      if (lineEnd == tail.npos) r.failAt("the file is cut short: the end line has no line end", at);
      if (lineEnd + 1 != tail.size()) r.failAt("text after the end line", at + 4 + lineEnd + 1);
   }

   // The records, read from the part the checksum covers only.
   StateReader body(path, text, std::string_view(text).substr(0, endLine + 1));
   body.skip(r.position());
   HwTables loaded;
   Brio::Ptr<HwTable> current;
   uint32_t allRows = 0;
   while (!body.atEnd()) {
      body.recordStart();
      const std::string_view kind = body.word();
      body.blank();
      if (kind == "table") {
         const Asic::UnitId unit = body.number();
         body.blank();
         const uint32_t rows = body.number();
         // A bound a real chip never reaches, over all tables together, so
         // that no file can make us allocate without limit.
         if (rows > (1u << 24) - allRows)
            body.fail("tables of more than " + std::to_string(1u << 24) + " rows in all");
         allRows += rows;
         body.blank();
         const std::string name(body.string("the table name"));
         if (loaded.count({name, unit})) body.fail("table " + name + " appears twice");
         current = Brio::makePtr<HwTable>(name, unit, rows);
         loaded.emplace(std::pair{name, unit}, current);
      } else if (kind == "row") {
         if (!current) body.fail("a row before any table");
         const Asic::Index index = body.number();
         if (index >= current->numEntries())
            body.fail("row " + std::to_string(index) + " is outside its table");
         body.blank();
         std::string rowText(body.string("the row text"));
         body.blank();
         const std::string_view keyType = body.string("the key type");
         body.blank();
         const std::string_view keyText = body.string("the key text");
         Orb::GenericValue key;
         if (!keyType.empty()) {
            try {
               key = Orb::genericValueFromText(keyType, keyText);
            } catch (const std::invalid_argument& e) {
               body.fail(std::string("row key: ") + e.what());
            }
         }
         current->rowTextIs(index, std::move(rowText));
         current->rowKeyIs(index, std::move(key));
      } else {
         body.fail("unknown record '" + std::string(kind) + "'");
      }
      body.lineEnd();
   }
   return loaded;
}

}  // namespace AsicSim
