"""The exception every failed library call raises."""


class HdwError(Exception):
    """A library result code other than 0: ``code`` and its ``text``;
    ``context`` says what was being done."""

    def __init__(self, code, text, context=""):
        super().__init__(code, text, context)
        self.code = code
        self.text = text
        self.context = context

    def __str__(self):
        what = f"{self.context}: " if self.context else ""
        return f"{what}{self.text} (result {self.code})"
