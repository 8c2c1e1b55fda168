#!/bin/sh
# What --diagnostics=sarif writes is valid by the part of the format's schema that is kept here, and says what the run said.
#
#     sarif.sh BIN SOURCES
set -u
bin=$(cd "$1" && pwd) && top=$(cd "$2" && pwd) || exit 1
work=$(mktemp -d) && trap 'rm -rf "$work"' EXIT && cd "$work" || exit 1
printf '\tmovlww\t3\nput\tmacro\n\tmovlw\t3 +\n\tendm\n\tput\n;\344\tx\n\tdw\tstrat\nstart:\tdb\t"\303\244" 3\n\tdb\t1/0\n' >'a b.as'
"$bin/aszel8" -mcpu=ZEL8K10 --diagnostics=sarif --depfile=none/d 'a b.as' 2>log
[ $? = 1 ] || exit 1
printf '\tnop\n' >c.as
"$bin/aszel8" -mcpu=ZEL8K10 --diagnostics=sarif c.as 2>good || exit 1
printf '\tmovlb\t9\n' >d.as
"$bin/zel8" -mcpu=ZEL8K10 -fsyntax-only --diagnostics=sarif c.as d.as 2>two || exit 1
printf '#include "e.h"\n#warning "mind"\n' >e.S
printf '#error no\n' >e.h
"$bin/zel8" -mcpu=ZEL8K10 --diagnostics=sarif e.S 2>pre && exit 1
"$bin/zel8" -mcpu=ZEL8K10 --diagnostics=json e.S 2>pre.json && exit 1
printf '\tpsect\tt,class=CODE,reloc=2\n\tglobal\tout\n\tgoto\tout\n' >f.as
"$bin/zel8" -mcpu=ZEL8K10 -g --diagnostics=sarif f.as d.as 2>joined && exit 1
python3 - "$top/tests/sarif.schema.json" <<'PYTHON'
import json, sys
from jsonschema import Draft4Validator
validator = Draft4Validator(json.load(open(sys.argv[1])))
log, good = json.load(open('log')), json.load(open('good'))
validator.validate(log)
validator.validate(good)
two = json.load(open('two'))
validator.validate(two)
assert [[rule['properties'] for rule in r['tool']['driver']['rules']] for r in two['runs']] == [[], [{'tags': ['bank']}]], two
# The traditional preprocessor tells of an include the line behind it.
def told(name):
    log = json.load(open(name))
    validator.validate(log)
    return [[r['tool']['driver']['name'], r['invocations'][0]['executionSuccessful']] +
            [[m['level'], m['message']['text'].split(':')[0]] +
             [[p['physicalLocation']['artifactLocation']['uri'], p['physicalLocation']['region']['startLine']]
              for p in m.get('locations', []) + m.get('relatedLocations', [])] for m in r['results']] for r in log['runs']]
assert told('pre') == [['cpp', False, ['error', '#error no', ['e.h', 1], ['e.S', 2]],
                        ['warning', '#warning "mind" [-Wcpp]', ['e.S', 2]]]], told('pre')
lines = [json.loads(line) for line in open('pre.json')]
assert [[m['tool'], m['severity'], m['file'], m['line'], len(m['notes'])] for m in lines] == \
    [['cpp', 'error', 'e.h', 1, 1], ['cpp', 'warning', 'e.S', 2, 0]], lines
joined = told('joined')
assert [r[:2] for r in joined] == [['aszel8', True], ['aszel8', True], ['zellink', False]], joined
assert joined[2][2:] == [['error', 'undefined symbol "out"', ['f.as', 3]]], joined
run, quiet = log['runs'][0], good['runs'][0]
assert not run['invocations'][0]['executionSuccessful'] and quiet['invocations'][0]['executionSuccessful'] and not quiet['results']
rules = [rule['id'] for rule in run['tool']['driver']['rules']]
seen = []
for result in run['results']:
    assert 'ruleId' not in result or rules[result['ruleIndex']] == result['ruleId']
    place = [l['physicalLocation'] for l in result.get('locations', []) + result.get('relatedLocations', [])]
    fixes = [c['replacements'][0] for f in result.get('fixes', []) for c in f['artifactChanges']]
    seen.append([result.get('ruleId'), [[p['region'].get(k) for k in ('startLine', 'startColumn', 'endColumn')] for p in place],
                 [[r['deletedRegion']['startColumn'], r['insertedContent']['text']] for r in fixes]])
    assert all(p['artifactLocation']['uri'] == 'a%20b.as' for p in place)
assert seen == [
    ['876', [[1, 2, 8]], [[2, 'movlw']]],
    ['876', [[5, 2, 5], [3, 11, 12]], []],
    ['875', [[8, None, None]], []],
    ['876', [[8, 15, 16]], []],
    [None, [[9, None, None]], []],
    ['800', [[7, 5, 10]], [[5, 'start']]],
    [None, [], []],
    ['461', [], []],
], seen
PYTHON
