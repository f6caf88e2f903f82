import os,pyb
try:_t=os.stat($dir)[0]
except OSError:_t=0
if _t!=0x4000:
 if hasattr(pyb,'FlashWriter'):
  with pyb.FlashWriter():os.mkdir($dir)
 else:os.mkdir($dir)
