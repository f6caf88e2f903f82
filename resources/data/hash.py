import binascii
try:from uhashlib import md5 as _H
except ImportError:from uhashlib import sha1 as _H
def _hash(f):
 try:
  h=_H();b=bytearray(512);m=memoryview(b)
  with open(f,'rb') as r:
   while 1:
    n=r.readinto(b)
    if not n:break
    h.update(m[:n])
  return binascii.hexlify(h.digest())
 except OSError as e:return ('err(%d)'%e.args[0]).encode()
