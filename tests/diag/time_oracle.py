# Reads microseconds since 1970-01-01 (UTC), one a line, and prints each as
# the diagnostic records' time stamp text.
import datetime
import sys

epoch = datetime.datetime(1970, 1, 1)
for line in open(sys.argv[1], encoding="ascii"):
    t = epoch + datetime.timedelta(microseconds=int(line))
    print(t.strftime("%Y-%m-%dT%H:%M:%S.%fZ"))
