"""Fails unless README.md quotes each example letter for letter: ReadmeTest.py README.md EXAMPLE..."""
import sys

readme, *examples = (open(path, encoding="utf-8").read() for path in sys.argv[1:])
for path, example in zip(sys.argv[2:], examples):
    if "```c\n" + example + "```\n" not in readme:
        sys.exit("README.md does not quote " + path + " as it is: copy it there again")
