#!/usr/bin/python3
"""Checks the cross-built Velmora.dll: every export the public header declares is exported under its
plain name, the class members are exported, and the version block and manifest are the library's."""
import re
import sys
from pathlib import Path

import pefile

ROOT = Path(__file__).resolve().parent.parent
EXPECTED_MEMBERS = {
    "_ZN8CVelmoraC1Ev",      # CVelmora::CVelmora()
    "_ZN8CVelmoraaSERKS_",   # CVelmora::operator=(const CVelmora&)
    "_ZN8CVelmoraaSEOS_",    # CVelmora::operator=(CVelmora&&)
}
EXPECTED_STRINGS = {
    "FileDescription": "ファイル操作ライブラリ",
    "FileVersion": "2.0.5.1",
    "ProductVersion": "2.0.5.1",
    "InternalName": "Velmora.dll",
    "OriginalFilename": "Velmora.dll",
}


def declared_exports():
    header = (ROOT / "include/velmora/velmora.h").read_text(encoding="utf-8")
    return set(re.findall(r"VELMORA_EXPORT\s+[\w\s\*]+?\b(\w+)\s*\(", header))


def main(path):
    pe = pefile.PE(path)
    failures = []
    if pe.FILE_HEADER.Machine != pefile.MACHINE_TYPE["IMAGE_FILE_MACHINE_AMD64"]:
        failures.append("not an x64 image")
    exported = {e.name.decode() for e in pe.DIRECTORY_ENTRY_EXPORT.symbols if e.name}
    for name in sorted(declared_exports() - exported):
        failures.append(f"export missing: {name}")
    for name in sorted(EXPECTED_MEMBERS - exported):
        failures.append(f"class member missing: {name}")

    tables = [t for info in getattr(pe, "FileInfo", []) for entry in info
              if entry.Key == b"StringFileInfo" for t in entry.StringTable]
    if len(tables) != 1 or tables[0].LangID.lower() != b"041104b0":
        failures.append(f"string table is not the one of language 0x0411, code page 1200: {[t.LangID for t in tables]}")
    else:
        values = {k.decode(): v.decode("utf-8") for k, v in tables[0].entries.items()}
        for key, want in EXPECTED_STRINGS.items():
            if values.get(key) != want:
                failures.append(f"version {key}: {values.get(key)!r}, expected {want!r}")
    fixed = pe.VS_FIXEDFILEINFO[0]
    if (fixed.FileVersionMS, fixed.FileVersionLS) != (0x00020000, 0x00050001):
        failures.append("fixed file version is not 2.0.5.1")

    manifest = None
    for kind in pe.DIRECTORY_ENTRY_RESOURCE.entries:
        if kind.id == pefile.RESOURCE_TYPE["RT_MANIFEST"]:
            data = kind.directory.entries[0].directory.entries[0].data.struct
            manifest = pe.get_data(data.OffsetToData, data.Size).decode("utf-8")
    if manifest is None:
        failures.append("no manifest")
    else:
        for needle in ('level="asInvoker"', 'uiAccess="false"', "<dpiAware", ">true</dpiAware>"):
            if needle not in manifest:
                failures.append(f"manifest lacks {needle}")

    if failures:
        print("Velmora.dll check failed:")
        for failure in failures:
            print("  " + failure)
        return 1
    print(f"Velmora.dll: {len(exported)} exports, version 2.0.5.1 (0411/1200), manifest asInvoker and DPI-aware")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
