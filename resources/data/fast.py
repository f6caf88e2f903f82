import sys,gc,os,io,binascii
try:
 import pyb;_FW=getattr(pyb,'FlashWriter',None)
except ImportError:_FW=None
class _NW:
 __enter__=lambda s:s
 __exit__=lambda s,*a:None
try:
 import deflate;_D=deflate.DeflateIO;_R=deflate.RAW
except (ImportError,AttributeError):_D=None
_T='.pelkam-tmp'
def _fcap():print(int(_D is not None))
def _fmk(d):
 p=''
 for x in d.strip('/').split('/'):
  p+='/'+x
  try:t=os.stat(p)[0]
  except OSError:t=0
  if t!=0x4000:
   with (_FW or _NW)():os.mkdir(p)
def _fbk(q,w,z):
 if not z:
  w.write(q);return b''
 while len(q)>=2:
  n=q[0]<<8|q[1];s=n&0x8000;n&=0x7FFF
  if len(q)<n+2:break
  x=q[2:n+2];q=q[n+2:]
  w.write(x if s else _D(io.BytesIO(x),_R,12).read())
 return q
def _fup(f,c,z,fn,ft):
 s=0x38;e='';i=sys.stdin.buffer;o=sys.stdout;p=f+_T;ok=0
 try:
  a=i.read(11)
  if len(a)<11 or a[0]!=33:
   s=0x31;e='Inv size packet {}'.format(a);raise StopIteration
  n=int(a[1:]);b=bytearray(1028);m=memoryview(b);h=0;t=0;q=b''
  d=f[:f.rfind('/')]
  with (_FW or _NW)():
   for x in os.listdir(d or '/'):
    if x.endswith(_T):
     try:os.remove(d+'/'+x)
     except OSError:pass
  o.write('#9>')
  with (_FW or _NW)(),open(p,'wb') as w:
   while n>0:
    k=min(n,c)
    if i.readinto(m[h:h+k])!=k:
     s=0x32;e='Inv data packet';raise StopIteration
    t+=sum(m[h:h+k]);h+=k
    if h>=1024:
     q=_fbk(q+binascii.a2b_base64(m[:h]),w,z);h=0;gc.collect()
    n-=k;o.write('#9>')
   q=_fbk(q+binascii.a2b_base64(m[:h]),w,z)
  gc.collect();a=i.read(11)
  if len(a)<11 or a[0]!=64:s=0x33;e='Inv size csum'
  elif t&0xFFFFFFFF!=int(a[1:]):s=0x34;e='Inv csum {}'.format(t)
  elif q:s=0x35;e='Inv block'
  else:
   g=0;v=0
   with open(p,'rb') as r:
    while 1:
     k=r.readinto(b)
     if not k:break
     g+=k;v+=sum(m[:k])
   if g!=fn or v&0xFFFFFFFF!=ft:
    s=0x35;e='Inv file {} {}'.format(g,v)
   else:
    with (_FW or _NW)():
     try:os.rename(p,f)
     except OSError:
      os.remove(f);os.rename(p,f)
    ok=1;s=0x30
 except StopIteration:pass
 except Exception as x:e=str(x)
 finally:
  if not ok:
   try:
    with (_FW or _NW)():os.remove(p)
   except OSError:pass
 o.write('#'+chr(s)+e)
