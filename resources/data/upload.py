import sys,gc,binascii,pyb
_FW=getattr(pyb,'FlashWriter',None)
class _NW:
 __enter__=lambda s:s
 __exit__=lambda s,*a:None
def _upload(f,c):
 s=0x38;e='';i=sys.stdin.buffer;o=sys.stdout
 try:
  p=i.read(11)
  if len(p)<11 or p[0]!=33:
   s=0x31;e='Inv size packet {}'.format(p);raise StopIteration
  n=int(p[1:]);b=bytearray(1028);m=memoryview(b);h=0;t=0
  o.write('#9>')
  with (_FW or _NW)(),open(f,'wb') as w:
   while n>0:
    gc.collect();k=min(n,c)
    if i.readinto(m[h:h+k])!=k:
     s=0x32;e='Inv data packet';raise StopIteration
    t+=sum(m[h:h+k]);h+=k
    if h>=1024:
     w.write(binascii.a2b_base64(m[:h]));h=0
    n-=k;o.write('#9>')
   w.write(binascii.a2b_base64(m[:h]))
  gc.collect();p=i.read(11)
  if len(p)<11 or p[0]!=64:s=0x33;e='Inv size csum'
  elif t&0xFFFFFFFF!=int(p[1:]):s=0x34;e='Inv csum {}'.format(t)
  else:s=0x30
 except StopIteration:pass
 except Exception as x:e=str(x)
 o.write('#'+chr(s)+e)
