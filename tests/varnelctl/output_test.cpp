// varnelctl: files that a run writes.
