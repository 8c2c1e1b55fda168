#!/bin/sh
# The page of --annotate= is well formed and complete in itself, its links lead somewhere, and it shows every line of the source,
# whatever bytes are in it. With a browser: a link opens the folds around the line that it leads to.
#
#     annotate.sh BIN
set -u
bin=$(cd "$1" && pwd) || exit 1
work=$(mktemp -d) && trap 'rm -rf "$work"' EXIT && cd "$work" || exit 1
PATH=$bin:$PATH python3 - <<'PYTHON'
import html.parser, os, re, shutil, subprocess
sources = {
    '<i>&"': b'put\tmacro\tn\t; <&amp;>\n\tlocal\tagain\n\tmovlw\tn\n\trept\t2\nagain:\tbra\tagain\n\tendm\n\tendm\n',
    'a&b.as': b'\tinclude\t\'<i>&"\'\n;\t\xe4 \xc3\xa4 \x1b \xff \0 \xed\xa0\x80 \xe0\x80 \x80 <!-- \'"&amp;\n'
              b'load\tmacro\n\trept\t2\nhere&:\tmovlw\t7\n\tendm\n\tendm\n\tif\t0\n\tsleep\n\tendif\n'
              b'\tpsect\ttext,class=CODE,reloc=2\n\tglobal\there\nhere:\tirp\tx,7,7\n\tmovlw\tx\n\tendm\n\tgoto\there\n\tgoto\tout\n',
    'b.as': b'\tglobal\tout\nout:\tgoto\there',
    'preprocessed.as': b'# 1 "a.S"\n\tnop\n# 1 "b.S"\n\tnop\n',
}
for name, text in sources.items():
    open(name, 'wb').write(text)

class Page(html.parser.HTMLParser):
    def __init__(self):
        super().__init__()
        self.open, self.ids, self.links, self.rows, self.files = [], [], [], [], []
    def handle_starttag(self, tag, pairs):
        attributes = dict(pairs)
        assert len(attributes) == len(pairs)
        assert not {'src', 'http-equiv'} & attributes.keys() and tag not in ('link', 'img', 'base')
        self.ids += [attributes['id']] if 'id' in attributes else []
        self.links += [attributes['href']] if tag == 'a' else []
        if tag not in ('meta', 'input'):
            self.open.append((tag, attributes.get('class', '')))
        if attributes.get('class', '').split()[:1] == ['l']:
            self.rows.append([attributes['class'], '', ''])   # class, number, text
        self.files += [''] if tag == 'h2' else []
    def handle_endtag(self, tag):
        assert self.open.pop()[0] == tag, (tag, self.getpos())
    def handle_data(self, data):
        names = [tag for tag, _ in self.open]
        if 'code' in names:
            self.rows[-1][2] += data
        elif self.open and self.open[-1][1] == 'n' and self.rows:
            self.rows[-1][1] += data
        elif names[-1:] == ['h2']:
            self.files[-1] += data

def make(*names):
    subprocess.run(['aszel8', '-mcpu=ZEL8K10', '-O', '-Oa.obj', '--annotate=a.html', *names], check=True, stderr=subprocess.DEVNULL)
    text = open('a.html', encoding='utf-8').read()
    page = Page()
    page.feed(text)
    page.close()
    assert not page.open and len(set(page.ids)) == len(page.ids)
    assert page.links and all(link[0] == '#' and link[1:] in page.ids for link in page.links)
    assert not re.search('https?:|@import|url\\(', text)
    return page, text

make('preprocessed.as')
page, text = make('a&b.as', 'b.as')
assert [f for f in page.files if f in sources] == ['a&b.as', '<i>&"', 'b.as']
lines = [row[1:] for row in page.rows if row[1].isdigit()]
shown = {'a&b.as': {2: ';\tä ä ␛ ÿ ␀ í\xa0\ufffd à\ufffd \ufffd <!-- \'"&amp;'}}
for name in ('a&b.as', '<i>&"', 'b.as'):
    for number, line in enumerate(sources[name].decode('latin-1').split('\n'), 1):
        if line or number == 1:
            assert lines.pop(0) == [str(number), shown.get(name, {}).get(number, line)], (name, number)
assert not lines
dead = [row for row in page.rows if ' dead' in row[0]]
assert [row[2] for row in dead] == ['\tsleep']
deleted = [row for row in page.rows if row[0].startswith('l x')]
assert [row[2] for row in deleted][:2] == ['\tmovlw\t7'] * 2, deleted

if shutil.which('chromium'):
    target = re.search('id="(x[0-9]+)"', text).group(1)
    seen = subprocess.run(['chromium', '--headless', '--no-sandbox', '--disable-gpu', '--user-data-dir=profile', '--dump-dom',
                           'file://' + os.getcwd() + '/a.html#' + target], capture_output=True, text=True, timeout=120).stdout
    around = seen[:seen.index('id="%s"' % target)].rindex('<details')
    assert ' open=' in seen[around:seen.index('>', around)], seen[around:around + 200]
PYTHON
