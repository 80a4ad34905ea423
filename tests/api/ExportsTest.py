"""Compares the dynamic symbols of a shared library with the functions that headers declare. Knows ELF files and DLLs.

ExportsTest.py exports LIBRARY MACRO HEADER...   the library defines exactly the functions declared with MACRO
ExportsTest.py imports LIBRARY MACRO HEADER...   of the names ZV_... and Lum... it needs only functions declared with MACRO
ExportsTest.py system LIBRARY OWN...             of DLLs it needs only the system's and those named OWN
"""
import os
import re
import subprocess
import sys


def declared(macro, headers):
    names = set()
    for header in headers:
        with open(header, encoding="utf-8") as file:
            text = re.sub(r"/\*.*?\*/|//[^\n]*", " ", file.read(), flags=re.S)
        text = re.sub(r"^[ \t]*#(?:[^\n]*\\\n)*[^\n]*", "", text, flags=re.M)
        names.update(re.findall(r"\b(?:%s)\b[^;(]*?\b(\w+)\s*\(" % macro, text))
    return names


# What every Windows since 7 brings along.
SYSTEM_DLLS = {"advapi32", "bcrypt", "crypt32", "kernel32", "msvcrt", "user32", "ws2_32", "mswsock", "secur32"}


def read_dll(library):
    """The exported names, the imported names, the DLLs that they come from."""
    objdump = os.environ.get("OBJDUMP", "objdump")
    text = subprocess.run([objdump, "-p", library], check=True, stdout=subprocess.PIPE, text=True).stdout
    exported = text.partition("[Ordinal/Name Pointer] Table")[2].partition("\n\n")[0]
    imported = text.partition("The Import Tables")[2].partition("The Export Tables")[0]
    return (set(re.findall(r"^\s*\[\s*\d+\].*\s(\S+)$", exported, re.M)),
            set(re.findall(r"^\s[0-9a-f]+\s+\d+\s+(\S+)$", imported, re.M)),
            re.findall(r"DLL Name: (\S+)", text))


def dynamic(library, which):
    if library.lower().endswith(".dll"):
        return read_dll(library)[0 if which == "--defined-only" else 1]
    nm = os.environ.get("NM", "nm")
    output = subprocess.run([nm, "-D", "-P", which, library], check=True, stdout=subprocess.PIPE, text=True).stdout
    # A version behind "@" belongs to the library that defines the symbol.
    return {line.split()[0].split("@")[0] for line in output.splitlines()}


def main(mode, library, macro, *headers):
    if mode == "system":
        allowed = SYSTEM_DLLS | {name.lower() for name in (macro, *headers)}
        return ["needs " + name for name in read_dll(library)[2] if name.lower().removesuffix(".dll") not in allowed]
    functions = declared(macro, headers)
    if not functions:
        return ["no function is declared with " + macro]
    if mode == "exports":
        shown = dynamic(library, "--defined-only")
        return (["declared but not exported: " + name for name in sorted(functions - shown)] +
                ["exported but not declared: " + name for name in sorted(shown - functions)])
    needed = {name for name in dynamic(library, "--undefined-only") if re.match(r"(_Z\w*?)?(ZV_|Lum)", name)}
    return (["needed but not published: " + name for name in sorted(needed - functions)] or
            ([] if needed else ["nothing of the platform is needed: is this the right file?"]))


faults = main(*sys.argv[1:])
if faults:
    sys.exit("\n".join(faults))
