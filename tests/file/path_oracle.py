# Reads one path per line (tab separates a second operand for join) and
# prints, tab-separated, what POSIX path handling makes of it.
import posixpath
import sys

for line in open(sys.argv[1], encoding="ascii").read().split("\n")[:-1]:
    a, _, b = line.partition("\t")
    print("\t".join([
        posixpath.join(a, b), posixpath.dirname(a), posixpath.basename(a),
        posixpath.splitext(a)[1], posixpath.splitext(a)[0], posixpath.normpath(a),
    ]))
