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
def _fcap():print(int(_D is not None),int(_fwn()>0))
def _fwn():
 try:
  import micropython;micropython.kbd_intr;sys.stdin.buffer.readinto;sys.stdout.buffer.write
 except (ImportError,AttributeError):return 0
 p=sys.platform
 if p in('rp2','samd','mimxrt','linux','darwin'):return 512
 if p in('esp32','pyboard'):return 128
 return 124 if p=='esp8266' else 60
def _fpo():
 try:
  import select;P=select.poll();P.register(sys.stdin,select.POLLIN);return P
 except Exception:return None
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
def _fok(f,p,r,fn,ft,b,q,x):
 if q:return 0x35,'Inv block',0
 e=_fvf(f,p,r,fn,ft,b)
 return (0x35,e,0) if e else (0x30,x,1)
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
  else:s,e,ok=_fok(f,p,r,fn,ft,b,q,x)
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
def _fru(f,z,n,fn,ft):
 import micropython as u
 W=_fwn();i=sys.stdin.buffer;o=sys.stdout.buffer;P=_fpo();s=0x38;e='';p='';ok=0;w=None;x='';g=0;q=b''
 try:
  p,r,x=_fpl(f,fn)
  if not p:e='[Errno 28] ENOSPC';raise StopIteration
  b=bytearray(W*8);m=memoryview(b);h=0;c=bytearray(1)
  with _fw():
   w=open(p,'wb')
   u.kbd_intr(-1);g=1
   sys.stdout.write('#9R%d,2\n'%W)
   while n>0:
    if P and not P.poll(10000):s=0x32;e='Timeout';break
    i.readinto(c)
    if c[0]!=61:
     if c[0]!=88:s=0x32;e='Inv data packet';o.write(b'\x18')
     elif not e:s=0x37;e='Stopped'
     break
    k=min(n,W);i.readinto(m[h:h+k]);n-=k
    if e:o.write(b'\x15');continue
    h+=k;o.write(b'\x01')
    if h>len(b)-W or not n:
     try:q=_fbk(q+bytes(m[:h]),w,z)
     except MemoryError:s=0x36;e='MemoryError'
     except Exception as y:e=str(y)
     h=0
   while n and P and P.poll(200):i.readinto(c)
   w.close();w=None
  if not e:s,e,ok=_fok(f,p,r,fn,ft,b,q,x)
 except StopIteration:pass
 except Exception as y:e=str(y)
 finally:
  if g:u.kbd_intr(3)
  if w:w.close()
  if not ok and p==f+_T:_frm(p)
 sys.stdout.write('#'+chr(s)+e)
def _frd(f):
 import micropython as u
 i=sys.stdin.buffer;o=sys.stdout.buffer;P=_fpo();g=0;t=0;a=0;k=0;e='';W=512;c=bytearray(1);h=0
 try:
  n=os.stat(f)[6];b=bytearray(W);m=memoryview(b)
  with open(f,'rb') as r:
   u.kbd_intr(-1);g=1
   sys.stdout.write('#9D%d,%d\n'%(n,W))
   while n>0 and not e:
    try:
     j=r.readinto(m[:min(n,W)])
     if not j:raise OSError(5)
    except Exception as y:e=str(y);o.write(b'!');break
    o.write(b'=');o.write(m[:j]);t+=sum(m[:j]);n-=j;k+=1
    while k-a>1 or k>a and not n:
     if P and not P.poll(10000):e='Timeout';h=1;break
     i.readinto(c);a+=1
     if c[0]!=6:e='Stopped'
   while not h and k>a:
    if P and not P.poll(10000):break
    i.readinto(c);a+=1
 except Exception as y:e=str(y)
 finally:
  if g:u.kbd_intr(3)
 sys.stdout.write('#6'+e if e else '#7%d'%(t&0xFFFFFFFF))
