// Reading HTTP/1.1 responses off a connection: the buffered reader, the
// status line, the header block (folded lines joined), the framing of the
// body and the body itself by Content-Length, chunked transfer coding or
// until the server closes. Every wait is bounded by the reader's limits;
// every size read from the server is checked before it is used.
//
// Sections: reader; body output; tokens and lists; head; body; in memory.
#include <new>

#include "lut.h"
#include "url/http_impl.h"

namespace lpu_internal {
namespace {

constexpr size_t kMaxLine = 16384;
constexpr size_t kMaxHeaders = 256;
constexpr size_t kMaxHeadBytes = 262144;

}  // namespace

// ---------------------------------------------------------------- reader
Rc Reader::recv_into(char *p, size_t cap, size_t *k) {
  *k = 0;
  if (clock != nullptr && clock->over()) return Rc::timeout;  // even when bytes keep coming
  int64_t n;
  if (conn != nullptr) {
    int32_t wait = clock != nullptr ? clock->next(ms) : ms;
    // Just after the request went out the answer cannot be there yet: wait
    // for it rather than make a read that is bound to find nothing.
    if (got == 0 && conn->tls == nullptr && slsckwait(conn->fd, 0, wait) == 0) return Rc::timeout;
    n = conn->recv(p, cap, wait);
  } else {
    // Small pieces, so that every boundary case of the buffer is met.
    n = static_cast<int64_t>(meml < 7 ? meml : 7);
    if (n > static_cast<int64_t>(cap)) n = static_cast<int64_t>(cap);
    memcpy(p, mem, static_cast<size_t>(n));
    mem += n;
    meml -= static_cast<size_t>(n);
  }
  if (n <= 0) return rc_of(n);
  *k = static_cast<size_t>(n);
  got += *k;
  return Rc::ok;
}

Rc Reader::fill() {
  if (r == w) r = w = 0;
  size_t k;
  Rc rc = recv_into(buf + w, sizeof buf - w, &k);
  w += k;
  return rc;
}

Rc Reader::line(Buf &out) {
  out.clear();
  for (;;) {
    for (size_t i = r; i < w; i++) {
      if (buf[i] == '\n') {
        if (!out.put(buf + r, i - r)) return Rc::nomem;
        r = i + 1;
        // The CR may have come in an earlier piece than its LF.
        if (out.size() > 0 && out.data()[out.size() - 1] == '\r') out.drop_last();
        return out.size() > kMaxLine ? Rc::bad : Rc::ok;
      }
    }
    if (!out.put(buf + r, w - r)) return Rc::nomem;
    r = w;
    if (out.size() > kMaxLine) return Rc::bad;
    Rc rc = fill();
    if (rc != Rc::ok) return rc;
  }
}

// ----------------------------------------------------------- body output
Rc BodyOut::put(const char *p, size_t k) {
  if (k == 0) return Rc::ok;
  n += k;
  if (n > cap) return Rc::bad;
  switch (kind) {
    case grow:
      return buf->put(p, k) ? Rc::ok : Rc::nomem;
    case fixed:
      memcpy(at + (n - k), p, k);
      return Rc::ok;
    case call:
      return fn(arg, head, p, k) == 0 ? Rc::ok : Rc::abort;
    default:
      return Rc::ok;
  }
}

// ---------------------------------------------------------- tokens, lists
bool tchar(char c) {
  return lutcis(static_cast<unsigned char>(c), LUT_C_ALNUM) || (c != 0 && sv("!#$%&'*+-.^_`|~").find(c) != sv::npos);
}

bool token(sv s) {
  if (s.empty()) return false;
  for (char c : s)
    if (!tchar(c)) return false;
  return true;
}

sv trim(sv s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
}

bool ieq(sv a, sv b) { return a.size() == b.size() && lutsnicmp(a.data(), b.data(), a.size()) == 0; }

namespace {

// Does the comma-separated list `v` hold `tok` (case ignored)?
bool list_has(sv v, sv tok) {
  while (!v.empty()) {
    size_t c = v.find(',');
    if (ieq(trim(v.substr(0, c)), tok)) return true;
    if (c == sv::npos) break;
    v.remove_prefix(c + 1);
  }
  return false;
}

// The last element of a comma-separated list.
sv list_last(sv v) {
  size_t c = v.rfind(',');
  return trim(c == sv::npos ? v : v.substr(c + 1));
}

// Calls fn(name, value) for each field in order until it returns false.
template <class Fn>
void each_field(const Response &rs, Fn fn) {
  sv h = rs.heads.view();
  for (size_t i = 0; i < rs.nheads; i++) {
    size_t a = h.find('\0');
    sv n = h.substr(0, a);
    h.remove_prefix(a + 1);
    size_t b = h.find('\0');
    sv v = h.substr(0, b);
    h.remove_prefix(b + 1);
    if (!fn(n, v)) return;
  }
}

// ------------------------------------------------------------------ head
Rc status_line(Reader &rd, Buf &line, Response &rs, Failure &f) {
  Rc rc = rd.line(line);
  if (rc != Rc::ok) {
    f.what = "reading the status line";
    return rc;
  }
  sv s = line.view();
  if (s.size() < 12 || s.substr(0, 5) != "HTTP/" || !lutcis(s[5], LUT_C_DIGIT) || s[6] != '.' ||
      !lutcis(s[7], LUT_C_DIGIT) || s[8] != ' ' || !lutcis(s[9], LUT_C_DIGIT) || !lutcis(s[10], LUT_C_DIGIT) ||
      !lutcis(s[11], LUT_C_DIGIT) || (s.size() > 12 && s[12] != ' ') || s[5] != '1') {
    f.what = "bad status line";
    return Rc::bad;
  }
  rs.minor = s[7] - '0';
  rs.status = (s[9] - '0') * 100 + (s[10] - '0') * 10 + (s[11] - '0');
  if (rs.status < 100) {
    f.what = "bad status code";
    return Rc::bad;
  }
  rs.reason.clear();
  if (s.size() > 13 && !rs.reason.put(s.substr(13))) return Rc::nomem;
  return Rc::ok;
}

bool clean_value(sv v) {
  for (char c : v)
    if ((static_cast<unsigned char>(c) < 32 && c != '\t') || c == 127) return false;
  return true;
}

// The header block. A line that starts with a space or tab continues the
// field before it (the obsolete line folding): it is joined to that value
// with one space.
Rc header_block(Reader &rd, Buf &line, Response &rs, Failure &f) {
  rs.heads.clear();
  rs.nheads = 0;
  for (;;) {
    Rc rc = rd.line(line);
    if (rc != Rc::ok) {
      f.what = "reading the headers";
      return rc;
    }
    sv s = line.view();
    if (s.empty()) return Rc::ok;
    if (rs.heads.size() + s.size() > kMaxHeadBytes) {
      f.what = "header block too large";
      return Rc::bad;
    }
    if (s[0] == ' ' || s[0] == '\t') {
      sv more = trim(s);
      if (rs.nheads == 0 || !clean_value(more)) {
        f.what = "bad folded header line";
        return Rc::bad;
      }
      rs.heads.drop_last();  // the NUL that ended the value
      bool empty = rs.heads.size() > 0 && rs.heads.data()[rs.heads.size() - 1] == '\0';
      if (!more.empty() && !empty && !rs.heads.putc(' ')) return Rc::nomem;
      if (!rs.heads.put(more) || !rs.heads.putc('\0')) return Rc::nomem;
      continue;
    }
    size_t colon = s.find(':');
    if (colon == sv::npos || !token(s.substr(0, colon))) {
      f.what = "bad header line";
      return Rc::bad;
    }
    sv v = trim(s.substr(colon + 1));
    if (!clean_value(v)) {
      f.what = "control character in header";
      return Rc::bad;
    }
    if (++rs.nheads > kMaxHeaders) {
      f.what = "too many headers";
      return Rc::bad;
    }
    if (!rs.heads.put(s.substr(0, colon)) || !rs.heads.putc('\0') || !rs.heads.put(v) || !rs.heads.putc('\0'))
      return Rc::nomem;
  }
}

// Every Content-Length field must carry the same plain number.
Rc content_length(const Response &rs, uint64_t *len, Failure &f) {
  bool seen = false, bad = false;
  each_field(rs, [&](sv n, sv v) {
    if (!ieq(n, "Content-Length")) return true;
    uint64_t x = 0;
    bad = v.empty() || v.size() > 15;
    for (char c : v) {
      if (!lutcis(c, LUT_C_DIGIT)) bad = true;
      x = x * 10 + static_cast<uint64_t>(c - '0');
    }
    if (bad) {
      f.what = "bad Content-Length";
    } else if (seen && x != *len) {
      bad = true;
      f.what = "conflicting Content-Length";
    }
    seen = true;
    *len = x;
    return !bad;
  });
  return bad ? Rc::bad : Rc::ok;
}

// ------------------------------------------------------------------ body
// Hands what the reader holds, at most n bytes, to out.
Rc hand(Reader &rd, uint64_t n, BodyOut &out, Failure &f) {
  size_t k = rd.w - rd.r < n ? rd.w - rd.r : static_cast<size_t>(n);
  Rc rc = out.put(rd.buf + rd.r, k);
  rd.r += k;
  if (rc == Rc::bad) f.what = "body too large";
  if (rc == Rc::abort) f.what = "body receiver";
  return rc;
}

// Hands n bytes of the stream to out.
Rc pass(Reader &rd, uint64_t n, BodyOut &out, Failure &f) {
  while (n > 0) {
    if (rd.r == rd.w && out.kind == BodyOut::fixed && n >= sizeof rd.buf) {
      // A large rest of a body kept whole goes straight to its place.
      size_t k;
      Rc rc = rd.recv_into(out.at + out.n, static_cast<size_t>(n), &k);
      if (rc != Rc::ok) {
        f.what = "reading the body";
        return rc;
      }
      out.n += k;
      n -= k;
      continue;
    }
    if (rd.r == rd.w) {
      Rc rc = rd.fill();
      if (rc != Rc::ok) {
        f.what = "reading the body";
        return rc;
      }
    }
    uint64_t k = rd.w - rd.r < n ? rd.w - rd.r : n;
    Rc rc = hand(rd, k, out, f);
    if (rc != Rc::ok) return rc;
    n -= k;
  }
  return Rc::ok;
}

Rc chunked(Reader &rd, Buf &line, BodyOut &out, Failure &f) {
  for (;;) {
    Rc rc = rd.line(line);
    if (rc != Rc::ok) {
      f.what = "reading a chunk size";
      return rc;
    }
    sv s = line.view();
    uint64_t n = 0;
    size_t i = 0;
    for (; i < s.size() && hexval(static_cast<unsigned char>(s[i])) >= 0; i++) {
      if (i >= 15) {
        f.what = "chunk size too large";
        return Rc::bad;
      }
      n = n * 16 + static_cast<uint64_t>(hexval(static_cast<unsigned char>(s[i])));
    }
    sv rest = trim(s.substr(i));
    if (i == 0 || (!rest.empty() && rest[0] != ';')) {
      f.what = "bad chunk size";
      return Rc::bad;
    }
    if (n == 0) break;
    rc = pass(rd, n, out, f);
    if (rc != Rc::ok) return rc;
    rc = rd.line(line);
    if (rc != Rc::ok || line.size() != 0) {
      f.what = "chunk not followed by an empty line";
      return rc == Rc::ok ? Rc::bad : rc;
    }
  }
  // Trailer fields are read and dropped.
  for (;;) {
    Rc rc = rd.line(line);
    if (rc != Rc::ok) {
      f.what = "reading the trailer";
      return rc;
    }
    if (line.size() == 0) return Rc::ok;
  }
}

}  // namespace

sv Response::header(sv name) const {
  sv found;
  each_field(*this, [&](sv n, sv v) {
    if (!ieq(n, name)) return true;
    found = v;
    return false;
  });
  return found;
}

Rc read_head(Reader &rd, Buf &line, bool head, Response &rs, Failure &f) {
  for (;;) {
    Rc rc = status_line(rd, line, rs, f);
    if (rc != Rc::ok) return rc;
    rc = header_block(rd, line, rs, f);
    if (rc != Rc::ok) return rc;
    if (rs.status >= 200 || rs.status == 101) break;
  }
  sv conn = rs.header("Connection");
  rs.keep = rs.minor >= 1 ? !list_has(conn, "close") : list_has(conn, "keep-alive");
  rs.framing = Response::no_body;
  if (head || rs.status == 204 || rs.status == 304 || rs.status < 200) return Rc::ok;
  if (rs.has("Transfer-Encoding")) {
    // Chunked must be the last coding; any other coding leaves the end of
    // the body to the server's closing.
    bool chunk = ieq(list_last(rs.header("Transfer-Encoding")), "chunked");
    if (!chunk || rs.has("Content-Length")) rs.keep = false;
    rs.framing = chunk ? Response::by_chunks : Response::by_close;
    return Rc::ok;
  }
  if (rs.has("Content-Length")) {
    rs.framing = Response::by_length;
    return content_length(rs, &rs.length, f);
  }
  rs.keep = false;
  rs.framing = Response::by_close;
  return Rc::ok;
}

Rc read_body(Reader &rd, Buf &line, Response &rs, BodyOut &out, Failure &f) {
  switch (rs.framing) {
    case Response::no_body:
      return Rc::ok;
    case Response::by_chunks:
      return chunked(rd, line, out, f);
    case Response::by_length:
      return pass(rd, rs.length, out, f);
    case Response::by_close:
      break;
  }
  for (;;) {
    Rc rc = hand(rd, rd.w - rd.r, out, f);
    if (rc != Rc::ok) return rc;
    rc = rd.fill();
    if (rc == Rc::eof) return Rc::ok;
    if (rc != Rc::ok) {
      f.what = "reading the body";
      return rc;
    }
  }
}

// ------------------------------------------------------------- in memory
int32_t parse_response_mem(const char *p, size_t n, bool head, int32_t *status, size_t *bodyl) {
  auto *rd = static_cast<Reader *>(ss_mem_alc(sizeof(Reader)));
  if (rd == nullptr) return -1;
  new (rd) Reader;
  rd->mem = p;
  rd->meml = n;
  Response rs;
  Failure f;
  Buf line, body;
  BodyOut out;
  out.kind = BodyOut::grow;
  out.buf = &body;
  out.cap = uint64_t{1} << 32;
  Rc rc = read_head(*rd, line, head, rs, f);
  if (rc == Rc::ok) rc = read_body(*rd, line, rs, out, f);
  ss_mem_fre(rd);
  if (rc != Rc::ok) return -1;
  *status = rs.status;
  *bodyl = body.size();
  return 0;
}

}  // namespace lpu_internal
