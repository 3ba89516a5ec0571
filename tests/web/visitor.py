"""tests/web/visitor.py - a visitor of the demo site that scripts/serve.sh runs, without a browser:
cookies, forms and the headers that browsers add. Used by the tests of this folder."""
import html, http.client, io, os, re, sqlite3, subprocess, sys, urllib.parse

SITE, DB, SESSIONS, LOG = (os.environ.get("SITE_" + name, "")
                           for name in ("URL", "DB", "SESSIONS", "LOG"))
ORIGIN = SITE.rstrip("/")
PASSWORD = "birch-heron-7"
FORM = {"hostname": "new", "nameserver": "192.0.2.1", "first": "9", "last": "99", "network": "1", "lease": "24",
        "ssid": "\"a'<b>", "channel": "36", "security": "wpa3", "passphrase": ""}
COMPLAINT = re.compile("Sanitizer: .*|runtime error: .*")  # a sanitizer's, in a log
failed = []


def check(what, expected, got):
    if expected != got:
        failed.append(what)
        print(f"{what}\n  expected: {expected!r}\n  got:      {got!r}", file=sys.stderr)


def sql(query, *values):
    with sqlite3.connect(DB, timeout=9) as db:
        if os.path.exists(SESSIONS):  # the first request makes it
            db.execute("attach ? as sessions", [SESSIONS])
        return db.execute(query, values).fetchall()


def stored(*names):
    """The values of these settings, of all without names."""
    values = dict(sql("select name, value from setting"))
    return [values[name] for name in names or values]


def revision():
    return sql("select number from revision")[0][0]


def run_zarn(program, body=b"", pipesize=-1, **more):
    """Starts the program as a web server would: for what that would refuse or mend, and where calls
    fail. program: with what runs it, as words; pipesize: in bytes; more: of the environment."""
    site = os.path.join(os.path.dirname(__file__), "../../examples/site")
    env = {"ZARN_DOCROOT": site, "ZARN_DB": DB, "ZARN_ROOT": os.path.dirname(DB) + "/root",
           "ZARN_SESSIONS": os.path.dirname(SESSIONS),
           "REQUEST_METHOD": "GET", "PATH_INFO": "/login.htm", "HTTP_HOST": "localhost",
           "HTTP_ORIGIN": "http://localhost",
           "CONTENT_LENGTH": str(len(body)), "CONTENT_TYPE": "application/x-www-form-urlencoded"}
    return subprocess.Popen(program.split(), env={**os.environ, **env, **more}, pipesize=pipesize,
                            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)


class Answer:
    def __init__(self, status, headers, text):
        self.status, self.headers, self.text = status, headers, text.decode()
        title = re.search("<h1>(.*?)</h1>", self.text)
        self.heading = title[1] if title else ""

    def value(self, name):
        """What the field of that name holds; None without one."""
        field = re.search(rf'<input[^>]* name="{name}"[^>]*>', self.text)
        return field and html.unescape(re.search(' value="([^"]*)"', field[0])[1])

    def hidden(self):
        """The hidden fields of the page's main form."""
        form = self.text[self.text.index("<main"):]
        return {html.unescape(name): html.unescape(value) for name, value in
                re.findall('<input type="hidden" name="([^"]*)" value="([^"]*)">', form)}

    def marked(self):
        return re.findall('name="([a-z]+)"[^>]* aria-invalid="true"', self.text)


class Visitor:
    timeout = 20  # seconds for an answer

    def __init__(self, origin=ORIGIN, context=None):
        self.origin, self.context, self.cookies = origin, context, {}
        self.headers = {"Origin": origin}

    def ask(self, path, method="GET", body=None, headers=()):
        """headers: instead of or besides the usual ones; None leaves one out."""
        sent = {} if method in ("GET", "HEAD") else dict(self.headers)
        sent["Cookie"] = "; ".join(f"{name}={value}" for name, value in self.cookies.items())
        sent.update(headers)
        answer = self.fetch(path, method, body, {k: v for k, v in sent.items() if v is not None})
        for cookie in answer.headers.get_all("Set-Cookie", ()):
            name, value = cookie.split(";")[0].split("=", 1)
            self.cookies[name] = value
        return answer

    def fetch(self, path, method, body, headers):
        target = urllib.parse.urlsplit(self.origin)
        if self.context:
            link = http.client.HTTPSConnection(target.netloc, timeout=self.timeout, context=self.context)
        else:
            link = http.client.HTTPConnection(target.netloc, timeout=self.timeout)
        link.request(method, "/" + path, body, headers)
        with link.getresponse() as response:
            answer = Answer(response.status, response.headers, response.read())
        link.close()
        return answer

    def post(self, path, fields, headers=()):
        kind = {"Content-Type": "application/x-www-form-urlencoded"}
        return self.ask(path, "POST", urllib.parse.urlencode(fields), {**kind, **dict(headers)})

    def token(self):
        return self.ask("logout.htm").value("token")

    def login(self, password=PASSWORD, **more):
        return self.post("login.htm", {"password": password, "repeat": password, **more})

    def save(self, **fields):
        """Saves the settings, on the version that is stored, with what differs from FORM."""
        return self.post("settings.htm", {"token": self.token(), "version": revision(),
                                          **FORM, **fields})


class Direct(Visitor):
    """A visitor whom the program answers without a web server; log is what it reported, code how it ended."""
    def __init__(self, program, **env):
        super().__init__("http://localhost")
        self.program, self.env, self.log = program, env, ""

    def fetch(self, path, method, body, headers):
        page, _, query = path.partition("?")
        body = body.encode() if isinstance(body, str) else body or b""
        sent = {"HTTP_" + name.upper().replace("-", "_"): value for name, value in headers.items()}
        process = run_zarn(self.program, body, PATH_INFO="/" + page, QUERY_STRING=query,
                           REQUEST_METHOD=method, **sent, **self.env)
        text, log = process.communicate(body)
        head, _, rest = text.partition(b"\r\n\r\n")
        fields = http.client.parse_headers(io.BytesIO(head + b"\r\n\r\n"))
        self.log, self.code = log.decode(), process.returncode
        return Answer(int(fields.get("Status", "0").split()[0]), fields, rest)


def signed_in():
    visitor = Visitor()
    check("signed in", 303, visitor.login().status)
    return visitor
