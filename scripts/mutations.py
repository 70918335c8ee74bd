"""What scripts/mutate changes in a source: one thing at a time, found among its tokens.

Nothing here understands C++. It relies on how the sources are written (a binary operator stands between
blanks, a pointer's star does not); what comes out wrong does not compile and is no mutant.
"""
import os
import re
from collections import namedtuple

Mutation = namedtuple('Mutation', 'begin end text')  # source[begin:end] becomes text
_Token = namedtuple('_Token', 'text begin end')

_LEXEME = re.compile(r'''
    (?P<skipped> \s+ | //[^\n]* | /\*.*?\*/ | ^[ \t]*\#(?:\\\n|[^\n])* )
  | " (?:\\.|[^"\\])* " | ' (?:\\.|[^'\\])* '
  | [A-Za-z_]\w* | \d[\w']*
  | <<=|>>=|->|\+\+|--|&&|\|\||[-+*/%&|^=!<>]=|<<|>>|::|.
''', re.X | re.M | re.S)

_WORD = re.compile(r'[A-Za-z_]\w*$')
_CONSTANT = re.compile(r'[A-Z][A-Z0-9_]{2,}$')
_NUMBER = re.compile(r"(0[xX][0-9a-fA-F']+|\d[\d']*)([uUlL]*)$")

_OPERATORS = {
    '<': ['<=', '>='], '<=': ['<', '>'], '>': ['>=', '<='], '>=': ['>', '<'],
    '==': ['!='], '!=': ['=='], '&&': ['||'], '||': ['&&'],
    '+': ['-'], '-': ['+'], '*': ['+'], '/': ['*'], '%': ['/'], '<<': ['>>'], '>>': ['<<'],
    '|': ['&'], '&': ['|'], '^': ['|'],
    '+=': ['-=', '='], '-=': ['+=', '='], '|=': ['=', '&='], '&=': ['=', '|='], '^=': ['|=', '='],
}
_UNARY = {'!': '', '~': '', '++': '--', '--': '++', 'true': 'false', 'false': 'true'}

_CLOSING = {'(': ')', '[': ']', '{': '}'}
_UNTOUCHED = {'static_assert', 'using', 'template', 'alignas', '__attribute__', 'extern', 'friend'}
_NO_CALL = {'if', 'for', 'while', 'switch', 'return', 'sizeof', 'catch', 'decltype', 'offsetof'}
_NO_STATEMENT = _UNTOUCHED | _NO_CALL - {'sizeof'} | {
    'case', 'default', 'goto', 'static', 'const', 'constexpr', 'constinit', 'auto', 'struct', 'enum',
    'union', 'else', 'do', 'break', 'continue', 'namespace', '{', '}', ';', '[', '#'}


def constants_of(source):
    """The constants that a source names."""
    return {t.text for t in _tokens(source) if _CONSTANT.match(t.text)}


def mutations(source, constants):
    """All that can be changed in a source; constants are the names that there are in all of them."""
    found = _Finder(source, constants).found
    return [m for m in dict.fromkeys(found) if source[m.begin:m.end] != m.text]


def _tokens(source):
    return [_Token(m.group(), m.start(), m.end()) for m in _LEXEME.finditer(source)
            if m.group('skipped') is None]


class _Finder:
    def __init__(self, source, constants):
        self.source = source
        self.tokens = _tokens(source)
        self.texts = [t.text for t in self.tokens] + [''] * 3
        self.found = []
        self.constants = sorted(constants)
        self.defined = {self.texts[i] for i in range(len(self.tokens))
                        if _CONSTANT.match(self.texts[i]) and self.texts[i + 1] == '='}
        self.members = sorted({self.texts[i + 1] for i, t in enumerate(self.texts)
                               if t in ('->', '.') and _WORD.match(self.texts[i + 1])})
        self._match_brackets()
        self._find_scopes()
        i = 0
        while i < len(self.tokens):
            if self.texts[i] in _UNTOUCHED:
                i = self._end_of_untouched(i)
            else:
                self._at(i)
                i += 1

    # --- where things are ---------------------------------------------------------------------

    def _match_brackets(self):
        self.partner, open_ = {}, []
        for i, text in enumerate(self.texts):
            if text in _CLOSING:
                open_.append(i)
            elif text and text in ')]}' and open_:
                self.partner[i] = open_.pop()
                self.partner[self.partner[i]] = i

    def _find_scopes(self):
        """For each token: 'body' in a function, 'init' in the braces of a value, else ''."""
        self.scope, stack, head = [], [''], 0
        for i, text in enumerate(self.texts):
            self.scope.append(stack[-1])
            if text == '{':
                stack.append(self._kind_of_brace(i, set(self.texts[head:i]), stack[-1]))
            elif text == '}' and len(stack) > 1:
                stack.pop()
            if text in ('{', '}', ';'):
                head = i + 1

    def _kind_of_brace(self, i, head, outer):
        before = self.texts[i - 1]
        if head & {'namespace', 'struct', 'class', 'union', 'enum', 'extern'} and before != ')':
            return ''
        if before in (')', ']', 'const', 'else', 'do', 'mutable', 'noexcept'):
            return 'body'
        if outer == 'body' and before in (';', '{', '}', ':'):
            return 'body'
        j = i - 1  # behind "-> type"?
        while j > 0 and (_WORD.match(self.texts[j]) or self.texts[j] in ('*', '&', '::')):
            j -= 1
        return 'body' if self.texts[j] == '->' and self.texts[j - 1] == ')' else 'init'

    def _end_of_untouched(self, i):
        if self.texts[i] == 'template':
            depth = 0
            while i < len(self.tokens):
                i += 1
                depth += {'<': 1, '>': -1, '>>': -2}.get(self.texts[i], 0)
                if depth <= 0:
                    return i + 1
        if self.texts[i + 1] == '(':
            return self.partner.get(i + 1, i) + 1
        while i < len(self.tokens) and self.texts[i] not in (';', '{'):
            i += 1
        return i + 1

    def _is_binary(self, i):
        begin, end = self.tokens[i].begin, self.tokens[i].end
        return self.source[begin - 1].isspace() and self.source[end:end + 1].isspace()

    def _span(self, first, last):
        return self.source[self.tokens[first].begin:self.tokens[last].end]

    def _edge(self, i, step, stops):
        """The last token, from i on, before a stop or a bracket that does not belong to it."""
        while 0 < i + step < len(self.tokens):
            text = self.texts[i + step]
            if text in stops or text in (_CLOSING.values() if step > 0 else _CLOSING):
                break
            i = self.partner.get(i + step, i + step)
        return i

    def _change(self, first, last, text):
        """Tokens first to last, both included, become text."""
        self.found.append(Mutation(self.tokens[first].begin, self.tokens[last].end, text))

    # --- what is changed ----------------------------------------------------------------------

    def _at(self, i):
        text = self.texts[i]
        if text in _OPERATORS and self._is_binary(i):
            self._operator(i)
        elif text in _UNARY and not self._is_binary(i):
            self._change(i, i, _UNARY[text])
        elif text == '-' and _WORD.match(self.texts[i + 1]):
            self._change(i, i, '')
        elif _NUMBER.match(text):
            self._number(i)
        elif _CONSTANT.match(text):
            self._others(i, self._kin(text))
        elif text in ('->', '.'):
            self._member(i)
        elif text == '?':
            self._ternary(i)
        elif text == 'return' and self.texts[i + 1] != ';':
            self._return(i)
        elif text in ('if', 'while', 'for') and self.scope[i] == 'body':
            self._condition(i)
        elif text in ('break', 'continue') and self.texts[i + 1] == ';':
            self._change(i, i + 1, '{}')
        elif text == '(' and _WORD.match(self.texts[i - 1]) and self.texts[i - 1] not in _NO_CALL:
            self._call(i)
        if self._begins_statement(i):
            self._statement(i)

    def _operator(self, i):
        for other in _OPERATORS[self.texts[i]]:
            self._change(i, i, other)
        if self.texts[i] in ('&&', '||', '+', '-', '|', '&'):  # one side alone
            stops = {'&&', '||', ',', ';', '=', '?', ':', 'return', '==', '!=', '<', '>', '<=', '>=',
                     '|=', '&=', '+=', '-=', self.texts[i]}
            if self.texts[i] in ('&&', '||'):
                stops -= {'==', '!=', '<', '>', '<=', '>='}
            left, right = self._edge(i, -1, stops), self._edge(i, 1, stops)
            self._change(left, right, self._span(left, i - 1))
            self._change(left, right, self._span(i + 1, right))

    def _number(self, i):
        if self._is_array_size(i):
            return
        digits, suffix = _NUMBER.match(self.texts[i]).groups()
        value = int(digits.replace("'", ''), 8 if re.match(r'0[0-7]+$', digits) else 0)
        self._change(i, i, f'{value + 1}{suffix}')
        if value > 0:
            self._change(i, i, f'{value - 1}{suffix}')

    def _is_array_size(self, i):
        """Room to spare is no mutant."""
        opening = self._edge(i, -1, ()) - 1
        return (self.texts[opening] == '[' and _WORD.match(self.texts[opening - 1]) is not None and
                (_WORD.match(self.texts[opening - 2]) is not None or self.texts[opening - 2] in '*>'))

    def _kin(self, constant):
        """What a constant might have been: another of this source's own, of these words, or an error."""
        if re.match(r'E[A-Z]+$', constant):
            return [n for n in self.constants if re.match(r'E[A-Z]+$', n)]
        if constant in self.defined:
            return sorted(self.defined)
        first, words = constant.partition('_')[0], constant.rpartition('_')[0]
        here = [n for n in sorted(set(self.texts)) if _CONSTANT.match(n) and n != constant and
                n.startswith(first + '_')]
        return here or [n for n in self.constants if words and n.startswith(words + '_')]

    def _others(self, i, names):
        """The two names that look most like this one."""
        own = self.texts[i]
        near = sorted((n for n in names if n != own),
                      key=lambda n: (-len(os.path.commonprefix((n, own))), n))
        for name in near[:2]:
            self._change(i, i, name)

    def _member(self, i):
        """Another member with the same last word, as in rx_port and l2_port."""
        name = self.texts[i + 1]
        if self.texts[i - 1] in ('{', ',', '(') or not _WORD.match(name):
            self._initializer(i)
        elif self.texts[i + 2] != '(':
            last = name.rpartition('_')[2]
            self._others(i + 1, [m for m in self.members if m.rpartition('_')[2] == last])

    def _initializer(self, i):
        """A field that is not named is zero."""
        if self.texts[i - 1] == '(' or self.texts[i + 2] not in ('=', '{'):
            return
        last = self._edge(i, 1, {','})
        self._change(i, last + (self.texts[last + 1] == ','), '')

    def _ternary(self, i):
        first = self._edge(i, -1, {',', ';', '=', '?', ':', 'return', '+=', '|=', '&='})
        if first < i:
            self._change(first, i - 1, f'!({self._span(first, i - 1)})')

    def _return(self, i):
        last = self._edge(i, 1, {';'})
        self._change(i + 1, last, '{}')
        if self.texts[last] == ')':
            self._change(i, last, 'return')  # where nothing is returned
        if last > i + 1 or not _NUMBER.match(self.texts[last]):
            self._change(i + 1, last, f'!({self._span(i + 1, last)})')

    def _condition(self, i):
        opening = i + 1 + (self.texts[i + 1] == 'constexpr')
        if opening not in self.partner:
            return
        first, last = opening + 1, self.partner[opening] - 1
        parts = [j for j in range(first, last + 1) if self.texts[j] == ';']
        if self.texts[i] == 'for':
            if len(parts) == 2 and parts[1] > parts[0] + 1:
                self._change(parts[0] + 1, parts[1] - 1, 'false')
            return
        if parts:
            first = parts[-1] + 1
        self._change(first, last, 'false')
        if self.texts[i] == 'if':
            self._change(first, last, 'true')
            self._change(first, last, f'!({self._span(first, last)})')

    def _begins_statement(self, i):
        before = self.texts[i - 1] if i else ''
        if self.scope[i] != 'body' or self.texts[i] in _NO_STATEMENT:
            return False
        if before == ')':
            head = self.partner[i - 1] - 1
            return self.texts[head] in ('if', 'for', 'while', 'constexpr')
        return before in (';', '{', '}', 'else', 'do', ']') or (
            before == ':' and self.texts[i - 3] == 'case' or self.texts[i - 2] == 'default')

    def _statement(self, i):
        last = self._edge(i, 1, {';'})
        if self.texts[last + 1] != ';' or last == i:
            return
        texts = self.texts[i:last + 1]
        declares = _WORD.match(texts[1]) or texts[1] in ('*', '&', '<', '::') and '=' in texts
        if not declares and set(texts) & ({'(', '=', '++', '--'} | set(_OPERATORS)):
            self._change(i, last + 1, '{}')

    def _call(self, i):
        closing = self.partner.get(i)
        if closing is None or not self.scope[i] or closing == i + 1:
            return
        arguments, first = [], i + 1
        while first < closing:
            last = self._edge(first - 1, 1, {','})
            arguments.append((first, last))
            first = last + 2
        if any(_WORD.match(self.texts[f]) and _WORD.match(self.texts[l]) and l > f and
               (l == f + 1 or self.texts[l - 1] in ('*', '&')) for f, l in arguments):
            return  # declares parameters
        for first, last in arguments:
            self._change(first, last, '{}')
        for (first, last), (first2, last2) in zip(arguments, arguments[1:]):
            between = self.source[self.tokens[last].end:self.tokens[first2].begin]
            self._change(first, last2,
                         self._span(first2, last2) + between + self._span(first, last))
