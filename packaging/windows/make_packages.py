#!/usr/bin/env python3
"""Makes the zip and the MSI of a folder with everything that is installed.

    make_packages.py --strip PROGRAM --version 1.2.3 [--build BUILD] FOLDER ZIP MSI

Equal folders give equal zips, wherever and whenever they are made: entries are sorted, their times
are SOURCE_DATE_EPOCH, or else that of the commit, and nothing of the folder's owners and modes is
kept. An MSI is another each time, as its maker draws codes. The programs in FOLDER are stripped; what
is linked into them is written beside them, as the linker's maps in BUILD, their build tree, tell. The
MSI's checksum is written beside it; the zip's is CPack's work.
"""

import argparse
import hashlib
import os
import shutil
import subprocess
import sys
import tempfile
import time
import uuid
import zipfile
from pathlib import Path
from xml.etree import ElementTree

HERE = Path(__file__).resolve().parent
PRODUCT = HERE / "quillfence.wxs"
WHAT_IS_LINKED = HERE.parent / "spdx" / "what-is-linked"
EARLIEST = 315532800  # 1980 is where the time of a zip begins


def epoch():
    """The time that everything in the packages has."""
    given = os.environ.get("SOURCE_DATE_EPOCH")
    if given is None:
        commit = subprocess.run(["git", "-C", HERE, "log", "-1", "--format=%ct"],
                                capture_output=True, text=True)
        given = commit.stdout.strip() if commit.returncode == 0 else "0"
    if not given.isdecimal():
        sys.exit(f"SOURCE_DATE_EPOCH is {given!r}, which is no count of seconds")
    return max(int(given), EARLIEST)


def files_below(folder):
    return sorted(path for path in folder.rglob("*") if path.is_file())


def strip_programs(folder, strip):
    """-p keeps the linker's time: none."""
    subprocess.run([strip, "-p", *sorted(folder.glob("*.exe"))], check=True)


def describe_links(folder, build, moment):
    with open(folder / "quillfence.spdx.json", "wb") as document:
        subprocess.run([sys.executable, "-B", WHAT_IS_LINKED, build, *sorted(folder.glob("*.exe"))],
                       stdout=document, check=True,
                       env={**os.environ, "SOURCE_DATE_EPOCH": str(moment)})


def give_one_time(folder, moment):
    for path in files_below(folder):
        os.utime(path, (moment, moment))


def make_zip(folder, package, moment):
    with zipfile.ZipFile(package, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as archive:
        for path in files_below(folder):
            name = f"{package.stem}/{path.relative_to(folder).as_posix()}"
            entry = zipfile.ZipInfo(name, time.gmtime(moment)[:6])
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = 0o100644 << 16
            archive.writestr(entry, path.read_bytes())


# --- the MSI ---


def upgrade_code():
    product = "{http://schemas.microsoft.com/wix/2006/wi}Product"
    return ElementTree.parse(PRODUCT).find(product).get("UpgradeCode")


def describe_files(folder):
    """The fragment of the product with its folders and files, as seen from the folder. A component a
    file, whose code is made of where it is: the same in each version, as Windows wants it."""
    wix = ElementTree.Element("Wix", xmlns="http://schemas.microsoft.com/wix/2006/wi")
    fragment = ElementTree.SubElement(wix, "Fragment")
    directories = {Path("."): ElementTree.SubElement(fragment, "DirectoryRef", Id="INSTALLDIR")}
    group = ElementTree.SubElement(fragment, "ComponentGroup", Id="Files")
    codes = uuid.UUID(upgrade_code())

    def directory(path):
        if path not in directories:
            directories[path] = ElementTree.SubElement(
                directory(path.parent), "Directory", Id=f"Folder{len(directories)}", Name=path.name)
        return directories[path]

    for number, path in enumerate(files_below(folder)):
        relative = path.relative_to(folder)
        if relative.suffix == ".cmd":
            continue  # installing and removing is the MSI's own work
        component = ElementTree.SubElement(directory(relative.parent), "Component",
                                           Id=f"Component{number}", Win64="yes",
                                           Guid=str(uuid.uuid5(codes, relative.as_posix())))
        ElementTree.SubElement(component, "File", Id=f"File{number}", KeyPath="yes",
                               Source=relative.as_posix())
        ElementTree.SubElement(group, "ComponentRef", Id=f"Component{number}")
    return ElementTree.tostring(wix, encoding="unicode")


def table_edits(folder, version):
    """What wixl 0.101 can't say, as the statements that write it into the tables."""
    yield from (
        # Another build of the same version is replaced as well (512), and keeps its features (1).
        "DELETE FROM `Upgrade` WHERE `ActionProperty` = 'WIX_UPGRADE_DETECTED'",
        "INSERT INTO `Upgrade` (`UpgradeCode`, `VersionMax`, `Attributes`, `ActionProperty`) "
        f"VALUES ('{{{upgrade_code()}}}', '{version}', 513, 'WIX_UPGRADE_DETECTED')",
        # The old version goes first, inside the transaction: one that fails brings it back.
        "UPDATE `InstallExecuteSequence` SET `Sequence` = 1501 "
        "WHERE `Action` = 'RemoveExistingProducts'",
        "INSERT INTO `LaunchCondition` (`Condition`, `Description`) "
        "VALUES ('Installed OR VersionNT64 >= 601', "
        "'Quillfence needs Windows 7 or Windows Server 2008 R2, or a newer one, of 64 bits.')",
        # REG_EXPAND_SZ, which wixl takes for text.
        "UPDATE `Registry` SET `Value` = '#%[INSTALLDIR]quillfence-replayer.exe' "
        "WHERE `Name` = 'EventMessageFile'",
        "UPDATE `CustomAction` SET `Type` = 51 WHERE `Action` = 'InstallWhereItWas'",
        # What the installing service takes from whoever asked for the installation.
        "UPDATE `Property` SET `Value` = "
        "'INSTALLDIR;INSTALLED_AT;WIX_DOWNGRADE_DETECTED;WIX_UPGRADE_DETECTED' "
        "WHERE `Property` = 'SecureCustomProperties'",
        # The PATH of the system (*) gets the folder behind what it has, and loses it again (-).
        "CREATE TABLE `Environment` (`Environment` CHAR(72) NOT NULL, "
        "`Name` CHAR(255) NOT NULL LOCALIZABLE, `Value` CHAR(255) LOCALIZABLE, "
        "`Component_` CHAR(72) NOT NULL PRIMARY KEY `Environment`)",
        "INSERT INTO `Environment` (`Environment`, `Name`, `Value`, `Component_`) "
        "VALUES ('Path', '=-*PATH', '[~];[INSTALLDIR]', 'SearchPath')",
        "INSERT INTO `InstallExecuteSequence` (`Action`, `Sequence`) "
        "VALUES ('RemoveEnvironmentStrings', 3300)",
        "INSERT INTO `InstallExecuteSequence` (`Action`, `Sequence`) "
        "VALUES ('WriteEnvironmentStrings', 5200)",
    )
    for number, path in enumerate(files_below(folder)):
        if path.suffix == ".exe":
            # What has a version is compared by it, and not by its digest.
            yield (f"UPDATE `File` SET `Version` = '{version}.0', `Language` = '1033' "
                   f"WHERE `File` = 'File{number}'")
            yield f"DELETE FROM `MsiFileHash` WHERE `File_` = 'File{number}'"


def make_msi(folder, package, version):
    package.unlink(missing_ok=True)
    with tempfile.TemporaryDirectory() as temporary:
        files = Path(temporary) / "files.wxs"
        files.write_text(describe_files(folder), encoding="utf-8")
        subprocess.run(["wixl", "--arch", "x64", "-D", f"Version={version}", "-o", package,
                        PRODUCT, files], cwd=folder, check=True)
    queries = (word for edit in table_edits(folder, version) for word in ("-q", edit))
    subprocess.run(["msibuild", package, *queries], check=True)
    digest = hashlib.sha256(package.read_bytes()).hexdigest()
    Path(f"{package}.sha256").write_text(f"{digest}  {package.name}\n")


def absolute(name):
    return Path(name).absolute()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--strip", required=True)
    parser.add_argument("--version", required=True)
    parser.add_argument("--build", type=absolute)
    parser.add_argument("folder", type=absolute)
    parser.add_argument("zip", type=absolute)
    parser.add_argument("msi", type=absolute)
    options = parser.parse_args()
    missing = [tool for tool in ("wixl", "msibuild") if not shutil.which(tool)]
    if missing:
        sys.exit(f"there is no {' and no '.join(missing)}; install the Debian packages wixl and "
                 "msitools")
    moment = epoch()
    strip_programs(options.folder, options.strip)
    if options.build:
        describe_links(options.folder, options.build, moment)
    give_one_time(options.folder, moment)
    make_zip(options.folder, options.zip, moment)
    make_msi(options.folder, options.msi, options.version)


if __name__ == "__main__":
    main()
