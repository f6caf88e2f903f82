import sys
def _debug():
 i=sys.stdin.buffer;o=sys.stdout
 try:
  while 1:
   d=i.read(32)
   if len(d)<32:
    o.write('INV data'+repr(d));break
   o.write('RX: ');o.buffer.write(d);o.write('>')
 finally:o.write('\nFIN')
