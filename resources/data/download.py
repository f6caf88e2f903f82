import sys,binascii
def _download(f):
 o=sys.stdout;i=sys.stdin.buffer
 o.write('>')
 try:
  b=bytearray(256);m=memoryview(b);t=0
  with open(f,'rb') as r:
   while 1:
    n=r.readinto(b)
    if not n:break
    t+=sum(m[:n])
    o.buffer.write(binascii.b2a_base64(m[:n]).rstrip());o.write('#8>')
    if i.read(2)!=b'^^':
     o.write('nak#6>');return
  o.write('%d#7>'%(t&0xFFFFFFFF))
 except Exception as e:
  o.write('%s#6>'%e)
