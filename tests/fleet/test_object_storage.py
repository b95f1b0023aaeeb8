"""The example of docs/fleet.md for more hosts than one controller serves: each host uploads its
archives to storage that speaks S3, and the other side pulls and checks them.
"""

from __future__ import annotations

import gzip
import hashlib
import io
import os
import re
import shutil
import tarfile
from pathlib import Path

import pytest
from support import object_storage
from support.fleet import ROOT, Finished, Fleet
from support.fleet_host import FleetHost
from support.machine import DATA_DIRECTORY, QUENDIL, Completed
from support.object_storage import (BUCKET, ENDPOINT, READER, REGION, SECRETS, WRITER,
                                    ObjectStorage)
from support.run import wait_until

pytestmark = pytest.mark.skipif(not object_storage.is_available(),
                                reason="this distribution has no package python3-swift")

UPLOAD = ROOT / "docs/examples/upload"
RECEIVE = ROOT / "docs/examples/receive"
UNIT = ROOT / "docs/examples/quendil-upload.service"
CREDENTIALS = "/root/storage"
SIGNED = ["--aws-sigv4", f"aws:amz:{REGION}:s3"]


@pytest.fixture
def storage(fleet: Fleet) -> ObjectStorage:
    """The storage on the controller."""
    return ObjectStorage(fleet)


@pytest.fixture
def host(fleet: Fleet, storage: ObjectStorage) -> FleetHost:
    """A host that may write to the bucket, and has the example."""
    made = fleet.host("web1")
    made.file(CREDENTIALS, netrc(WRITER, SECRETS[WRITER]), 0o600)
    made.install(UPLOAD, "/opt/upload")
    return made


def netrc(user: str, secret: str) -> str:
    return f"machine {ENDPOINT.split('//')[1].split(':')[0]} login {user} password {secret}\n"


def upload(host: FleetHost, *paths: str, check: bool = True, **settings: str) -> Completed:
    """What a host's timer starts after a run."""
    return host.exec(["/opt/upload", *paths], check=check, seconds=60.0, env={
        "UPLOAD_URL": f"{ENDPOINT}/{BUCKET}", "UPLOAD_CREDENTIALS": CREDENTIALS,
        "UPLOAD_RETRIES": "0", **settings})


def archive(content: bytes = b"text", index: bool = True, name: str = "web1_1") -> bytes:
    """A small archive."""
    made = io.BytesIO()
    with tarfile.open(fileobj=made, mode="w") as packed:
        for path, data in ((f"{name}/a", content), (f"{name}/quendil_index", b"index")):
            if index or not path.endswith("index"):
                member = tarfile.TarInfo(path)
                member.size = len(data)
                packed.addfile(member, io.BytesIO(data))
    return gzip.compress(made.getvalue(), mtime=0)


def named(name: str, content: bytes) -> str:
    """The name that an upload gives its object."""
    return f"{name}.{hashlib.sha256(content).hexdigest()}"


def receive(fleet: Fleet) -> Finished:
    """What the other side does with its copy of the bucket."""
    return fleet.run([RECEIVE, fleet.directory / "copy", fleet.directory / "taken"])


def taken(fleet: Fleet) -> dict[str, bytes]:
    """What it has taken, by path."""
    top = fleet.directory / "taken"
    return {str(path.relative_to(top)): path.read_bytes()
            for path in top.rglob("*") if path.is_file()}


# ---- From a host to the other side --------------------------------------------------------------


def test_an_archive_arrives_as_it_was_made_and_leaves_its_host(
        fleet: Fleet, storage: ObjectStorage, host: FleetHost):
    host.exec([QUENDIL, "-t", "system"])
    [name] = host.list(DATA_DIRECTORY)
    content = host.path(f"{DATA_DIRECTORY}/{name}").read_bytes()
    done = upload(host, f"{DATA_DIRECTORY}/{name}")
    assert (done.stdout, done.stderr) == ("", "")
    assert host.list(DATA_DIRECTORY) == []
    assert storage.objects() == {f"web1/{named(name, content)}": content}
    storage.pull(fleet.directory / "copy")
    assert receive(fleet).status == 0
    assert taken(fleet) == {f"web1/{name}": content}


def test_pulling_again_takes_what_is_new_and_makes_no_second_copy(
        fleet: Fleet, storage: ObjectStorage, host: FleetHost):
    for number in (1, 2):
        name = f"web1_{number}"
        upload(host, host.file(f"/tmp/{name}.tar.gz", archive(name=name)))
        storage.pull(fleet.directory / "copy")
        done = receive(fleet)
        assert (done.status, done.stderr) == (0, "")
        assert sorted(taken(fleet)) == [f"web1/web1_{one}.tar.gz" for one in range(1, number + 1)]
    assert {path.stat().st_nlink for path in (fleet.directory / "taken").rglob("*.gz")} == {2}


def test_an_archive_can_stay_on_its_host(storage: ObjectStorage, host: FleetHost):
    path = host.file("/tmp/web1_1.tar.gz", archive())
    upload(host, path, UPLOAD_KEEP="yes")
    assert host.exists(path) and len(storage.objects()) == 1
    upload(host, path)  # a repetition changes nothing there
    assert not host.exists(path) and len(storage.objects()) == 1


def test_all_archives_of_a_directory_are_uploaded(storage: ObjectStorage, host: FleetHost):
    upload(host, host.directory("/tmp/data"))
    assert storage.objects() == {}
    for name in ("web1_1.tar.gz", "web1_2.tar.gz", "web1_3.tar", "web1_4.tar.gz.age"):
        host.file(f"/tmp/data/{name}", archive())
    host.directory("/tmp/data/web1_5.tar.gz")
    host.file("/tmp/data/web1_0.tar.gz", b"damaged")
    done = upload(host, "/tmp/data", check=False)
    assert done.status == 1
    assert host.list("/tmp/data") == ["web1_0.tar.gz", "web1_3.tar", "web1_5.tar.gz"]
    assert len(storage.objects()) == 3


# ---- Uploads that fail --------------------------------------------------------------------------


def test_what_cannot_be_uploaded_stays_for_the_next_night(storage: ObjectStorage,
                                                          host: FleetHost):
    path = host.file("/tmp/web1_1.tar.gz", archive())
    storage.stop()
    done = upload(host, path, check=False)
    assert done.status == 1 and f"{path}: not uploaded, it stays here" in done.stderr
    assert host.path(path).read_bytes() != b""
    storage.start()
    upload(host, path)
    assert not host.exists(path) and len(storage.objects()) == 1


def test_an_upload_is_tried_again_until_the_storage_answers(fleet: Fleet, storage: ObjectStorage,
                                                            host: FleetHost):
    host.file("/tmp/web1_1.tar.gz", archive())
    storage.stop()
    host.file("/root/start", f"UPLOAD_URL={ENDPOINT}/{BUCKET} UPLOAD_CREDENTIALS={CREDENTIALS} "
              "exec /opt/upload /tmp/web1_1.tar.gz\n")
    job = fleet.start(["ssh", "web1", "sh /root/start 2>&1"])
    wait_until(lambda: "curl" in job.stdout, 30.0, "the first failure")
    storage.start()
    done = job.finish(seconds=60)
    assert done.status == 0 and "stays here" not in done.stdout, done
    assert not host.exists("/tmp/web1_1.tar.gz") and len(storage.objects()) == 1


def test_one_archive_that_fails_does_not_stop_the_next(storage: ObjectStorage, host: FleetHost):
    damaged = host.file("/tmp/web1_1.tar.gz", archive()[:-9])
    good = host.file("/tmp/web1_2.tar.gz", archive(name="web1_2"))
    odd = host.file("/tmp/web1 3.tar.gz", archive())
    missing = "/tmp/web1_4.tar"
    done = upload(host, damaged, odd, missing, good, check=False)
    assert done.status == 1
    assert f"{damaged}: damaged, not uploaded" in done.stderr
    assert f"{odd}: not a name of an archive" in done.stderr
    assert f"{missing}: not a file" in done.stderr
    assert host.exists(damaged) and host.exists(odd) and not host.exists(good)
    assert [name.split(".")[0] for name in storage.objects()] == ["web1/web1_2"]


def test_the_storage_takes_no_other_bytes_than_those_of_the_sum(storage: ObjectStorage,
                                                                host: FleetHost):
    path = host.file("/tmp/web1_1.tar.gz", archive())
    host.replace_by("/usr/bin/sha256sum", f"#!/bin/sh\necho {'0' * 64}  -\n")
    done = upload(host, path, check=False)
    assert done.status == 1 and "400" in done.stderr
    assert host.exists(path) and storage.objects() == {}


def test_wrong_credentials_upload_nothing(storage: ObjectStorage, host: FleetHost):
    path = host.file("/tmp/web1_1.tar.gz", archive())
    host.file(CREDENTIALS, netrc(WRITER, "wrong"), 0o600)
    done = upload(host, path, check=False)
    assert done.status == 1 and "403" in done.stderr
    assert host.exists(path) and storage.objects() == {}


@pytest.mark.skipif(shutil.which("systemd-analyze") is None, reason="systemd is not installed")
def test_the_unit_is_valid(host: FleetHost):
    text = UNIT.read_text().replace("/usr/local/sbin/quendil-upload", "/opt/upload")
    assert text.count("/opt/upload") == 1
    host.file("/tmp/quendil-upload.service", text)
    done = host.exec(["systemd-analyze", "verify", "--man=no", "/tmp/quendil-upload.service"])
    assert (done.stdout, done.stderr) == ("", "")
    for setting, value in re.findall("^(ExecStart|ReadWritePaths)=(.*)$", text, re.M):
        assert value.split()[-1] == DATA_DIRECTORY, setting


@pytest.mark.parametrize("what", ["", "/web1/{}"])
def test_a_host_can_read_nothing_of_what_is_there(storage: ObjectStorage, host: FleetHost,
                                                  what: str):
    content = archive()
    upload(host, host.file("/tmp/web1_1.tar.gz", content))
    url = f"{ENDPOINT}/{BUCKET}{what.format(named('web1_1.tar.gz', content))}"
    empty = hashlib.sha256(b"").hexdigest()
    for user, status in ((WRITER, "403"), (READER, "200")):
        host.file(CREDENTIALS, netrc(user, SECRETS[user]), 0o600)
        done = host.exec(["curl", "-s", "-o", "/dev/null", "-w", "%{http_code}", *SIGNED,
                          "--netrc-file", CREDENTIALS, "-H", f"x-amz-content-sha256: {empty}", url])
        assert done.stdout == status


def test_the_secret_is_in_no_command_line(storage: ObjectStorage, host: FleetHost):
    host.file("/tmp/web1_1.tar.gz", archive())
    host.replace_by("/usr/bin/curl", "#!/bin/sh\ncat /proc/$$/cmdline /proc/$$/environ >/root/seen\n")
    upload(host, "/tmp/web1_1.tar.gz")
    seen = host.read("/root/seen")
    assert ENDPOINT in seen and SECRETS[WRITER] not in seen


# ---- What the other side refuses ----------------------------------------------------------------


def copied(fleet: Fleet, path: str, content: bytes) -> Path:
    """An object in the copy of the bucket."""
    place = fleet.directory / "copy" / path
    place.parent.mkdir(parents=True, exist_ok=True)
    place.write_bytes(content)
    return place


@pytest.mark.parametrize("name, content, cause", [
    (f"web1_1.tar.gz.{'0' * 64}", archive(), "its bytes have another sum than its name says"),
    ("web1_1.tar.gz", archive(), "not the name of an upload"),
    (named("web1 1.tar.gz", archive()), archive(), "not the name of an upload"),
    (named("-rf.tar.gz", archive()), archive(), "not the name of an upload"),
    (named("web1_1.zip", b"x"), b"x", "not an archive"),
    (named("web1_1.tar.gz", archive()[:-9]), archive()[:-9], "not compressed as it should be"),
    (named("web1_1.tar.gz", archive(index=False)), archive(index=False), "it has no index"),
    (named("web1_2.tar.gz", archive()), archive(), "it has no index"),
], ids=["sum", "no sum", "blank", "option", "kind", "cut off", "no index", "index of another"])
def test_what_is_wrong_is_refused_with_its_cause(fleet: Fleet, name: str, content: bytes,
                                                 cause: str):
    refused = copied(fleet, f"web1/{name}", content)
    good = archive(name="web2_1")
    copied(fleet, f"web2/{named('web2_1.tar.gz', good)}", good)
    done = receive(fleet)
    assert (done.status, done.stderr) == (1, f"{refused}: {cause}\n")
    assert taken(fleet) == {"web2/web2_1.tar.gz": good}


def test_what_is_no_file_of_a_host_is_refused(fleet: Fleet):
    content = archive()
    outside = copied(fleet, named("web1_1.tar.gz", content), content)
    link = copied(fleet, f"web1/{named('web1_1.tar.gz', content)}", b"")
    link.unlink()
    link.symlink_to(outside)
    deep = copied(fleet, "web1/deep/file", b"").parent
    done = receive(fleet)
    assert done.status == 1
    assert sorted(done.stderr.splitlines()) == sorted([
        f"{outside}: not in the directory of a host", f"{link}: not a file", f"{deep}: not a file"])
    assert taken(fleet) == {}


def test_an_archive_never_takes_the_place_of_another(fleet: Fleet, storage: ObjectStorage,
                                                     host: FleetHost):
    first, second = archive(b"first"), archive(b"second")
    for content in (first, second):
        upload(host, host.file("/tmp/web1_1.tar.gz", content))
        storage.pull(fleet.directory / "copy")
        done = receive(fleet)
    assert done.status == 1 and "another archive of that name is there" in done.stderr
    assert set(storage.objects().values()) == {first, second}
    assert taken(fleet) == {"web1/web1_1.tar.gz": first}


def test_other_kinds_of_results_are_taken_too(fleet: Fleet):
    plain, sealed = gzip.decompress(archive()), os.urandom(100)
    copied(fleet, f"web1/{named('web1_1.tar', plain)}", plain)
    copied(fleet, f"web1/{named('web1_1.tar.gz.age', sealed)}", sealed)
    assert receive(fleet).status == 0
    assert taken(fleet) == {"web1/web1_1.tar": plain, "web1/web1_1.tar.gz.age": sealed}


def test_an_empty_copy_is_no_failure(fleet: Fleet):
    (fleet.directory / "copy").mkdir()
    done = receive(fleet)
    assert (done.status, done.stdout, done.stderr) == (0, "", "")
