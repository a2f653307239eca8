"""The peer of `kt url split --json`: python's urllib.parse.urlsplit over the
lines of a file, printing the fields kt prints, in its JSON layout."""
import json
import sys
from urllib.parse import urlsplit


def main(path):
    write = sys.stdout.write
    separator = "\n "
    write("[")
    with open(path, encoding="utf-8", errors="surrogateescape") as lines:
        for line in lines:
            url = line.rstrip("\r\n")
            if not url:
                continue
            parts = urlsplit(url)
            path_, _, params = parts.path.partition(";")
            userinfo = parts.netloc.rpartition("@")[0]
            record = {
                "url": url, "scheme": parts.scheme, "authority": parts.netloc,
                "domain": userinfo.partition(";")[0] if ";" in userinfo else "",
                "user": parts.username or "", "password": parts.password or "",
                "host": parts.hostname or "", "service": str(parts.port or ""),
                "path": path_, "params": params, "query": parts.query, "fragment": parts.fragment,
            }
            write(separator + json.dumps(record))
            separator = ",\n "
    write("\n]\n")


main(sys.argv[1])
