"""Fails unless README.md quotes the example letter for letter: ReadmeTest.py README.md fetch.c"""
import sys

readme, example = (open(path, encoding="utf-8").read() for path in sys.argv[1:3])
if "```c\n" + example + "```\n" not in readme:
    sys.exit("README.md does not quote " + sys.argv[2] + " as it is: copy it there again")
