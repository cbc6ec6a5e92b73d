"""A bucket at an S3 server of this computer, by the administrator's hand: enough to back it up and to put it back."""

import datetime
import hashlib
import hmac
import http.client
import urllib.parse
import xml.etree.ElementTree

REGION = "us-east-1"


def _mac(key, text):
    return hmac.new(key, text.encode(), hashlib.sha256).digest()


class Bucket:
    NAME = "bucket"

    def __init__(self, key, secret):
        self.key = key
        self.secret = secret

    def make(self, port):
        try:
            return self._ask(port, "PUT", "")[0] == 200
        except OSError:
            return False  # not there yet

    def list(self, port):
        """Name, size and date of each object."""
        found, after = [], ""
        while True:
            body = self._must(port, "GET", "", query={"list-type": "2", "start-after": after})
            page = [[each.findtext(f"{{*}}{field}") for field in ("Key", "Size", "LastModified")]
                    for each in xml.etree.ElementTree.fromstring(body).iter("{*}Contents")]
            found += page
            if not page:
                return found
            after = page[-1][0]

    def get(self, port, name):
        return self._must(port, "GET", name)

    def put(self, port, name, contents):
        self._must(port, "PUT", name, contents)

    def remove(self, port, name):
        self._must(port, "DELETE", name)

    def _must(self, port, method, name, body=b"", query=None):
        status, answer = self._ask(port, method, name, body, query)
        if status // 100 != 2:
            raise RuntimeError(f"{method} {name}: {status} {answer}")
        return answer

    def _ask(self, port, method, name, body=b"", query=None):
        """Signed as AWS Signature Version 4 has it."""
        path = urllib.parse.quote(f"/{self.NAME}/{name}".rstrip("/"))
        parameters = urllib.parse.urlencode(sorted((query or {}).items()), quote_via=urllib.parse.quote)
        now = datetime.datetime.now(datetime.timezone.utc)
        day, time = now.strftime("%Y%m%d"), now.strftime("%Y%m%dT%H%M%SZ")
        digest = hashlib.sha256(body).hexdigest()
        headers = {"host": f"127.0.0.1:{port}", "x-amz-content-sha256": digest, "x-amz-date": time}
        names = ";".join(headers)
        request = "\n".join([method, path, parameters, *(f"{key}:{value}" for key, value in headers.items()), "", names,
                             digest])
        scope = f"{day}/{REGION}/s3/aws4_request"
        text = "\n".join(["AWS4-HMAC-SHA256", time, scope, hashlib.sha256(request.encode()).hexdigest()])
        key = ("AWS4" + self.secret).encode()
        for each in scope.split("/"):
            key = _mac(key, each)
        headers["authorization"] = (f"AWS4-HMAC-SHA256 Credential={self.key}/{scope}, SignedHeaders={names}, "
                                    f"Signature={_mac(key, text).hex()}")
        connection = http.client.HTTPConnection("127.0.0.1", port, timeout=60)
        connection.request(method, path + ("?" + parameters if parameters else ""), body, headers)
        answer = connection.getresponse()
        found = answer.status, answer.read()
        connection.close()
        return found
