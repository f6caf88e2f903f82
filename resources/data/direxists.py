import os
def _direxists(d):
 try:os.listdir(d);return True
 except OSError:return False
