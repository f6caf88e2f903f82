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
_V='.pelkam-new'
def _fcap():print(int(_D is not None))
def _fw():return (_FW or _NW)()
def _fst(p):
 try:return os.stat(p)[0]
 except OSError:return 0
def _fdir(f):
 i=f.rfind('/')
 return f[:i] if i>0 else ('/' if i==0 else '.')
def _fcln(d):
 r=[]
 for x in os.listdir(d):
  for s in (_T,_V):
   if x.endswith(s) and len(x)>len(s):
    p=d.rstrip('/')+'/'+x;f=p[:-len(s)]
    with _fw():
     if s==_V and not _fst(f):os.rename(p,f);r.append(f)
     else:os.remove(p)
 return r
def _fmk(d):
 p='' if d[:1]=='/' else '.'
 for x in d.strip('/').split('/'):
  p+='/'+x
  if _fst(p)!=0x4000:
   with _fw():os.mkdir(p)
def _fbk(q,w,z):
 if not z:
  w.write(q);return b''
 while len(q)>=2:
  n=q[0]<<8|q[1];s=n&0x8000;n&=0x7FFF
  if len(q)<n+2:break
  x=q[2:n+2];q=q[n+2:]
  w.write(x if s else _D(io.BytesIO(x),_R,12).read())
 return q
def _fpl(f,fn):
 d=_fdir(f);_fcln(d);r=_fst(f)==0x8000;p=f+_T;x='';u=0
 try:v=os.statvfs(d);k=v[0];u=k*v[3]<(fn//k+3)*k
 except (OSError,AttributeError):pass
 if u:
  if r and k*v[3]+os.stat(f)[6]//k*k>=(fn//k+3)*k:p=f;x=' in place'
  else:p=''
 return p,r,x
def _fvf(f,p,r,fn,ft,b):
 m=memoryview(b);g=0;v=0
 with open(p,'rb') as y:
  while 1:
   k=y.readinto(b)
   if not k:break
   g+=k;v+=sum(m[:k])
 if g!=fn or v&0xFFFFFFFF!=ft:return 'Inv file {} {}'.format(g,v)
 if p!=f:
  with _fw():
   if r:
    os.rename(p,f+_V);p=f+_V
    try:os.rename(p,f)
    except OSError:
     if _fst(f):os.remove(f)
     os.rename(p,f)
   else:os.rename(p,f)
 return ''
def _frm(p):
 try:
  with _fw():os.remove(p)
 except OSError:pass
def _fup(f,c,z,fn,ft):
 s=0x38;e='';i=sys.stdin.buffer;o=sys.stdout;p='';ok=0;w=None;x=''
 try:
  a=i.read(11)
  if len(a)<11 or a[0]!=33:
   s=0x31;e='Inv size packet {}'.format(a);raise StopIteration
  n=int(a[1:]);b=bytearray(1024+c);m=memoryview(b);h=0;t=0;q=b''
  p,r,x=_fpl(f,fn)
  if not p:s=0x38;e='[Errno 28] ENOSPC';raise StopIteration
  with _fw():
   w=open(p,'wb')
   if not n:w.close()
   o.write('#9>')
   while n>0:
    k=min(n,c)
    if i.readinto(m[h:h+k])!=k:
     s=0x32;e='Inv data packet';raise StopIteration
    t+=sum(m[h:h+k]);h+=k;n-=k
    if h>=1024 or not n:
     try:q=_fbk(q+binascii.a2b_base64(m[:h]),w,z)
     except MemoryError:s=0x36;e='MemoryError';raise StopIteration
     h=0;gc.collect()
    if not n:w.close()
    o.write('#9>')
  a=i.read(11)
  if len(a)<11 or a[0]!=64:s=0x33;e='Inv size csum'
  elif t&0xFFFFFFFF!=int(a[1:]):s=0x34;e='Inv csum {}'.format(t)
  elif q:s=0x35;e='Inv block'
  else:
   e=_fvf(f,p,r,fn,ft,b)
   if e:s=0x35
   else:ok=1;s=0x30;e=x
 except StopIteration:pass
 except Exception as y:e=str(y)
 finally:
  if w:w.close()
  if not ok and p==f+_T:_frm(p)
 o.write('#'+chr(s)+e)
def _fwa(f,fn):
 global _W
 p,r,x=_fpl(f,fn);_W=(f,p,r,x)
 if not p:sys.stdout.write('#8[Errno 28] ENOSPC');return
 with _fw():open(p,'wb').close()
 sys.stdout.write('#0'+p)
def _fwb(fn,ft):
 f,p,r,x=_W;e=''
 try:e=_fvf(f,p,r,fn,ft,bytearray(1024))
 except Exception as y:e=str(y)
 if e and p!=f:_frm(p)
 sys.stdout.write('#5'+e if e else '#0'+x)
