# Runs in the interpreter at every boot, before boot.py and main.py: turns the
# WebAssembly MicroPython into something that looks like a USB-attached board.
import sys
import js
import vfs
import binascii
import io
import micropython

_cfg = js.vbConfig
_host = js.vbHost
_os = __import__("os")
_time = __import__("time")

vfs.umount("/")
if _cfg.flavour == "stm32":
    vfs.mount(vfs.VfsPosix("/board"), "/flash")
    _os.chdir("/flash")
    sys.path.clear()
    sys.path.extend(["", "/flash", "/flash/lib"])
else:
    vfs.mount(vfs.VfsPosix("/board"), "/")
    _os.chdir("/")
    sys.path.clear()
    sys.path.extend(["", "/lib"])


class _Module:
    def __init__(self, name, base=None):
        self.__name__ = name
        if base is not None:
            for key in dir(base):
                if not key.startswith("__"):
                    setattr(self, key, getattr(base, key))


def _install(module, *names):
    for name in names:
        sys.modules[name] = module


class _UnameResult:
    _fields = ("sysname", "nodename", "release", "version", "machine")

    def __init__(self, values):
        self._values = tuple(values)
        for key, value in zip(self._fields, self._values):
            setattr(self, key, value)

    def __getitem__(self, i):
        return self._values[i]

    def __len__(self):
        return len(self._values)

    def __repr__(self):
        return "(" + ", ".join("%s=%r" % kv for kv in zip(self._fields, self._values)) + ")"

    __str__ = __repr__


_uname = _UnameResult(
    [_cfg.sysname, _cfg.nodename, _cfg.release, _cfg.version, _cfg.machine]
)

# The interpreter was built with Emscripten's errno numbers; boards use the
# classic ones (ENOENT is 2, not 44), and their messages show them.
_ERRNO = {44: (2, "ENOENT"), 20: (17, "EEXIST"), 55: (39, "ENOTEMPTY"), 31: (21, "EISDIR"),
          54: (20, "ENOTDIR"), 2: (13, "EACCES"), 28: (22, "EINVAL"), 29: (5, "EIO"),
          51: (28, "ENOSPC"), 8: (9, "EBADF"), 63: (1, "EPERM"), 43: (19, "ENODEV")}


class _BoardOSError(OSError):
    def __str__(self):
        return "[Errno %d] %s" % (self.args[0], self._name)


# Stock firmware names only these (py/moderrno.c's default list); any other
# code prints as a bare number ("OSError: 28"). --errno-names names them all.
_DEFAULT_NAMES = {1, 2, 5, 9, 11, 12, 13, 17, 19, 21, 22, 95, 98, 103, 104, 105, 107, 110, 111, 113, 114, 115}


def _board_error(e):
    code = e.args[0] if e.args and isinstance(e.args[0], int) else None
    if code not in _ERRNO:
        return e
    number, name = _ERRNO[code]
    if not _cfg.errnoNames and number not in _DEFAULT_NAMES:
        return OSError(number)
    err = _BoardOSError(number)
    err._name = name
    return err


def _translated(fn):
    def call(*args, **kw):
        try:
            return fn(*args, **kw)
        except _BoardOSError:
            raise
        except OSError as e:
            raise _board_error(e)

    return call


os = _Module("os", _os)
for _name in ("chdir", "getcwd", "listdir", "mkdir", "remove", "rename", "rmdir", "unlink", "statvfs"):
    setattr(os, _name, _translated(getattr(_os, _name)))
os.uname = lambda: _uname

_MOUNT = "/flash" if _cfg.flavour == "stm32" else "/"
_FLASH_MS = _cfg.flashMs
_CAPACITY = _cfg.flashSize
_BLOCK = 512
_ERASE_MS = _cfg.eraseMs
_SECTOR = 4096


def _flash_busy():
    # An erase or a directory update: the board reads no input meanwhile.
    if _FLASH_MS:
        _host.busy(_FLASH_MS)


def _flash_op(fn):
    def call(*args):
        _flash_busy()
        return fn(*args)

    return call


for _name in ("mkdir", "remove", "rmdir", "unlink"):
    setattr(os, _name, _flash_op(getattr(os, _name)))


def _used(path=_MOUNT):
    total = 0
    for entry in _os.ilistdir(path):
        full = path.rstrip("/") + "/" + entry[0]
        if entry[1] == 0x4000:
            total += _BLOCK + _used(full)
        else:
            # Whole blocks, as a flash file system allocates them.
            total += (_os.stat(full)[6] + _BLOCK - 1) // _BLOCK * _BLOCK + _BLOCK
    return total


if _CAPACITY:

    def _statvfs(path):
        _translated(_os.stat)(path)
        total = _CAPACITY // _BLOCK
        free = max(0, _CAPACITY - _used()) // _BLOCK
        return (_BLOCK, _BLOCK, total, free, free, 0, 0, 0, 0, 255)

    os.statvfs = _statvfs


def _rename(old, new):
    # This port's VfsPosix loses absolute paths in rename; a board's file
    # system takes them, so rename relative to the mount point instead.
    def inside(path):
        if not path.startswith("/"):
            path = _os.getcwd().rstrip("/") + "/" + path
        return path[len(_MOUNT):].lstrip("/") if path.startswith(_MOUNT) else path

    here = _os.getcwd()
    _os.chdir(_MOUNT)
    try:
        if _cfg.fs == "fat":
            # FAT cannot rename over a file: MicroPython unlinks the target first.
            try:
                target_is_file = _os.stat(inside(new))[0] & 0xF000 == 0x8000
            except OSError:
                target_is_file = False
            if target_is_file:
                _os.stat(inside(old))
                _flash_busy()
                _translated(_os.remove)(inside(new))
                if _cfg.crashInRename:
                    _host.crash()
        _flash_busy()
        _translated(_os.rename)(inside(old), inside(new))
    finally:
        try:
            _os.chdir(here)
        except OSError:
            pass  # the folder renamed was the current one


os.rename = _rename


def _stat(path):
    st = _translated(_os.stat)(path)
    # Boards report only the file type in the mode, never permission bits.
    return (st[0] & 0xF000,) + tuple(st[1:])


os.stat = _stat
_real_ilistdir = _translated(_os.ilistdir)
import builtins

_open = _translated(builtins.open)


class _FlashFile:
    # A file open for writing on flash: opening erases, closing commits, and
    # the file system may be full.
    def __init__(self, f):
        self._f = f
        self._written = 0

    def write(self, data):
        if _CAPACITY and _used() + len(data) > _CAPACITY:
            raise _board_error(OSError(51))
        if _ERASE_MS:
            # Each sector the data reaches is erased first.
            before = self._written // _SECTOR
            self._written += len(data)
            for _ in range(self._written // _SECTOR - before):
                _host.busy(_ERASE_MS)
        return self._f.write(data)

    def read(self, *a):
        return self._f.read(*a)

    def readinto(self, *a):
        return self._f.readinto(*a)

    def readline(self, *a):
        return self._f.readline(*a)

    def seek(self, *a):
        return self._f.seek(*a)

    def tell(self):
        return self._f.tell()

    def flush(self):
        return self._f.flush()

    def close(self):
        if self._f is not None:
            self._f.close()
            self._f = None
            _flash_busy()

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __iter__(self):
        return iter(self._f)


def _open_file(name, mode="r", *args, **kw):
    # A board refuses to open a folder (Emscripten only fails at the first read).
    try:
        folder = isinstance(name, str) and _os.stat(name)[0] & 0x4000
    except OSError:
        folder = False
    if folder:
        raise _board_error(OSError(31))
    if not (_FLASH_MS or _CAPACITY or _ERASE_MS) or not any(c in mode for c in "wax+"):
        return _open(name, mode, *args, **kw)
    _flash_busy()
    if _CAPACITY and "w" in mode and _used() + _BLOCK > _CAPACITY:
        raise _board_error(OSError(51))
    return _FlashFile(_open(name, mode, *args, **kw))


builtins.open = _open_file


def _ilistdir4(path="."):
    prefix = path if path.endswith("/") else path + "/"
    for entry in _real_ilistdir(path):
        size = 0
        if entry[1] == 0x8000:
            try:
                size = _os.stat(prefix + entry[0])[6]
            except OSError:
                pass
        yield (entry[0], entry[1], entry[2], size)


os.ilistdir = _ilistdir4 if _cfg.entries != 3 else _real_ilistdir
_install(os, "os", "uos")


class _Hash:
    def __init__(self, algo, data=None):
        self._h = _host.hashNew(algo)
        if data:
            self.update(data)

    def update(self, data):
        _host.hashUpdate(self._h, binascii.hexlify(data).decode())

    def digest(self):
        return binascii.unhexlify(_host.hashDigest(self._h))


hashlib = _Module("hashlib", __import__("hashlib"))
if _cfg.hash in ("md5", "both"):
    hashlib.md5 = lambda data=None: _Hash("md5", data)
if _cfg.hash in ("sha1", "md5", "both"):
    hashlib.sha1 = lambda data=None: _Hash("sha1", data)
_install(hashlib, "hashlib", "uhashlib")

time = _Module("time", _time)
time.sleep = lambda s: _host.sleep(s * 1000)
time.sleep_ms = lambda ms: _host.sleep(ms)
time.sleep_us = lambda us: _host.sleep(us / 1000)
_install(time, "time", "utime")

machine = _Module("machine")
machine.reset = lambda *a: _host.reset("hard")
machine.soft_reset = lambda: _host.reset("soft")
machine.dfu = lambda: _host.dfu()
machine.bootloader = machine.dfu
machine.freq = lambda *a: 168000000 if _cfg.flavour == "stm32" else 240000000
machine.unique_id = lambda: b"\x56\x42\x4f\x41\x52\x44\x30\x31"
machine.reset_cause = lambda: 1
machine.idle = lambda: None
machine.PWRON_RESET = 1
machine.HARD_RESET = 2
machine.SOFT_RESET = 5
_install(machine, "machine", "umachine")

if _cfg.flavour == "stm32":

    class _FlashWriter:
        def __enter__(self):
            return self

        def __exit__(self, *exc):
            return False

    pyb = _Module("pyb")
    # Upstream MicroPython's pyb has no FlashWriter; some vendor builds add it.
    if not _cfg.stockPyb:
        pyb.FlashWriter = _FlashWriter
    pyb.hard_reset = machine.reset
    pyb.delay = time.sleep_ms
    pyb.millis = _time.ticks_ms
    _install(pyb, "pyb")


# A firmware built without deflate: the module is there but empty, so
# deflate.DeflateIO fails as on such a board.
if _cfg.noDeflate:
    _install(_Module("deflate"), "deflate")
elif _cfg.inflateOom:
    # A fragmented heap: the 4 kB window cannot be allocated.
    _deflate = _Module("deflate", __import__("deflate"))

    def _no_memory(*a, **kw):
        raise MemoryError("memory allocation failed, allocating 4096 bytes")

    _deflate.DeflateIO = _no_memory
    _install(_deflate, "deflate")


# A board's console: the text streams turn "\n" into "\r\n" on the way out
# and "\r" into "\n" on the way in; the .buffer streams pass bytes as they
# are. This port sends both through one byte stream, so raw writes take
# their own way to the host.
class _RawOut:
    def write(self, data):
        data = bytes(data)
        if data:
            _host.rawOut(binascii.hexlify(data).decode())
        return len(data)

    def flush(self):
        pass


class _TextOut:
    def __init__(self, real):
        self._real = real
        self.buffer = _RawOut()

    def write(self, text):
        return self._real.write(text)

    def flush(self):
        pass


class _TextIn(io.IOBase):
    def __init__(self, real):
        self.buffer = real.buffer

    def ioctl(self, request, arg):
        # select.poll: readable once input waits in the ring.
        if request == 3:
            return arg & 1 if _host.inputReady(1) else 0
        return 0

    def read(self, n=-1):
        return self.buffer.read(n).decode().replace("\r", "\n")

    def readline(self):
        line = bytearray()
        while not line.endswith(b"\n"):
            c = self.buffer.read(1)
            if not c:
                break
            line += b"\n" if c == b"\r" else c
        return line.decode()


_sys = _Module("sys", sys)
_sys.stdout = _TextOut(sys.stdout)
_sys.stderr = _TextOut(sys.stderr)
_sys.stdin = _TextIn(sys.stdin)
_sys.platform = "pyboard" if _cfg.flavour == "stm32" else "esp32"
_install(_sys, "sys", "usys")

# Firmware whose console cannot carry raw bytes (no kbd_intr to turn Ctrl-C off).
if _cfg.noRawStdio:
    _micropython = _Module("micropython", micropython)
    del _micropython.kbd_intr
    _install(_micropython, "micropython")


def _vb_run(name):
    try:
        open(name).close()
    except OSError:
        return
    # Ctrl-C must reach a program started at boot, as on a board.
    micropython.kbd_intr(3)
    try:
        exec(open(name).read(), {"__name__": "__main__"})
    except BaseException as e:
        sys.print_exception(e)
    finally:
        micropython.kbd_intr(-1)


def _vb_boot():
    _vb_run("boot.py")
    _vb_run("main.py")


# WebREPL's file protocol writes and reads through the board's own open().
# The board answers status 0 whatever happens to a put, so its errors vanish.
def _vb_wa_open(name):
    try:
        open(name, "wb").close()
    except OSError as e:
        _host.fileDone("", "OSError: %s" % e)


def _vb_wa_put(name):
    # The C module writes each piece it reads and ignores a failed write.
    data = binascii.unhexlify(js.vbWa.hex)
    try:
        f = open(name, "wb")
    except Exception:
        return
    for at in range(0, len(data), 511):
        try:
            f.write(data[at:at + 511])
        except Exception:
            pass
    try:
        f.close()
    except Exception:
        pass


def _vb_wa_get(name):
    try:
        with open(name, "rb") as f:
            data = f.read()
    except OSError as e:
        _host.fileDone("", "OSError: %s" % e)
        return
    _host.fileDone(binascii.hexlify(data).decode(), "")
