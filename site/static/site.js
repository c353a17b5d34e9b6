// What works better with a script: progress without reloading, and keys. Everything else needs none.
'use strict';

const box = document.getElementById('progress');
if (box) {
  box.querySelector('.reload').hidden = true;
  const ask = async () => {
    try {
      const state = await (await fetch('/progress')).json();
      if (!state.running) return location.assign(box.dataset.here);
      const bar = document.getElementById('bar');
      if (state.total > 0) { bar.max = state.total; bar.value = state.looked_at; }
      const most = state.to_the_end ? '' : 'at most ';
      const megabytes = (bytes) => (bytes / 1e6).toFixed(1);
      document.getElementById('progress-text').textContent =
        `${state.looked_at} of ${most}${state.total} looked at, ${state.taken} new` +
        (state.all_bytes > 0
          ? `, ${megabytes(state.bytes)} of ${most}${megabytes(state.all_bytes)} MB` : '') +
        (state.seconds_left === null ? '' : `, ${most}${state.seconds_left} s left`);
    } catch { /* the next try may do */ }
    setTimeout(ask, 500);
  };
  setTimeout(ask, 300);
}

const rows = [...document.querySelectorAll('.message > a')];
const step = (by) => {
  const at = rows.indexOf(document.activeElement);
  const to = rows[at < 0 ? (by > 0 ? 0 : rows.length - 1) : at + by];
  if (to) to.focus();
};
const press = (key) => {
  const target = document.querySelector(`[data-key="${key}"]`);
  if (target) target.click();
};
document.addEventListener('keydown', (event) => {
  if (event.ctrlKey || event.metaKey || event.altKey) return;
  if (event.target.closest('input:not([type=checkbox]), textarea, select, dialog[open]')) return;
  switch (event.key) {
    case 'j': step(1); break;
    case 'k': step(-1); break;
    case 'c': press('c'); break;
    case 'u': press('back'); break;
    case '?': document.getElementById('keys').showModal(); break;
    case '#': {
      const row = document.activeElement.closest('.message');
      const tick = row && row.querySelector('input[type=checkbox]');
      if (tick && !document.querySelector('.message input:checked')) tick.checked = true;
      press('delete');
      break;
    }
    default: return;
  }
  event.preventDefault();
});
