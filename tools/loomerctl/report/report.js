// Without this the page shows the same. The browser keeps the tree of bookmarks, which may have a hundred thousand, as the text
// of a <noscript>, an entry in a line, and this makes elements of the entries that somebody looks at. Nothing of a bookmark is
// taken for markup: in those lines it is escaped, and the elements and attributes that are made are those named here.
'use strict';
(() => {
  const MOST_SHOWN = 200;
  const MOST_MADE_AT_ONCE = 5000;
  const finder = document.querySelector('.finder');
  if (!finder) return;
  const search = document.getElementById('search');
  const found = document.getElementById('found');
  const results = document.getElementById('results');

  const source = document.querySelector('.bookmarks');
  const lines = source.textContent.split('\n').filter(line => line.startsWith('<li>') || line.startsWith('</ul></details>'));
  const isFolder = at => lines[at].startsWith('<li><details');
  const isEnd = at => lines[at].startsWith('</');
  // The line after each folder's last one, and the folder around each line, -1 for none.
  const ends = new Int32Array(lines.length);
  const folders = new Int32Array(lines.length);
  let folder = -1;
  for (let at = 0; at < lines.length; ++at) {
    if (isEnd(at)) {
      ends[folder] = at + 1;
      folder = folders[folder];
    } else {
      folders[at] = folder;
      if (isFolder(at)) folder = at;
    }
  }

  const CHARACTERS = {'&amp;': '&', '&lt;': '<', '&gt;': '>', '&quot;': '"'};
  const plain = text => text.replace(/&(?:amp|lt|gt|quot);/g, name => CHARACTERS[name]);

  // The element of a line; of a folder without what is in it.
  const elementOf = line => {
    const open = [document.createDocumentFragment()];
    for (const [, end, name, address, unfolded, text] of
      line.matchAll(/<(\/?)(li|details|summary|ul|a|b|small|code)(?: href="([^"]*)")?( open)?>|([^<]+)/g)) {
      if (end) {
        open.pop();
      } else if (name) {
        const element = document.createElement(name);
        if (address) element.href = plain(address);
        if (unfolded) element.open = true;
        open.at(-1).append(element);
        open.push(element);
      } else {
        open.at(-1).append(plain(text));
      }
    }
    return open[0].firstChild;
  };

  const waiting = new Map();  // lists that are still to be filled, with the lines that are to be in them
  const fill = list => {
    const range = waiting.get(list);
    if (!range) return;
    waiting.delete(list);
    const [begin, end] = range;
    const entries = document.createDocumentFragment();
    for (let at = begin; at < end; at = isFolder(at) ? ends[at] : at + 1) {
      const entry = elementOf(lines[at]);
      entries.append(entry);
      if (!isFolder(at)) continue;
      const details = entry.firstChild;
      waiting.set(details.lastChild, [at + 1, ends[at] - 1]);
      if (details.open) fill(details.lastChild);
    }
    list.append(entries);
  };
  const fillAll = () => {
    for (const list of waiting.keys()) fill(list);  // comes by the lists that this adds, too
  };

  const tree = document.createElement('ul');
  tree.className = 'tree';
  waiting.set(tree, [0, lines.length]);
  fill(tree);
  // So that the browser's own search finds what is folded.
  if (lines.length <= MOST_MADE_AT_ONCE) fillAll();
  tree.addEventListener('toggle', event => fill(event.target.lastChild), true);
  source.replaceWith(tree);

  // Made at the first search: a page of a hundred thousand bookmarks opens without it.
  let texts = null;
  const makeTexts = () => lines.map((line, at) => isFolder(at) || isEnd(at) ? '' :
    plain(line.replace(/<(?:a href="([^"]*)"|[^>]*)>/g, '$1\n')).toLowerCase());

  const pathOf = at => {
    const names = [];
    for (let above = folders[at]; above >= 0; above = folders[above]) {
      names.unshift(elementOf(lines[above]).querySelector('summary > b').textContent);
    }
    return names.join(' › ');
  };

  const show = matches => {
    results.replaceChildren(...matches.slice(0, MOST_SHOWN).map(at => {
      const entry = elementOf(lines[at]);
      const path = document.createElement('small');
      path.textContent = pathOf(at);
      entry.append(' ', path);
      return entry;
    }));
  };

  const tell = count => {
    const text = count > MOST_SHOWN ? found.dataset.cut : found.dataset.found;
    found.textContent = text.replace('%1', count.toLocaleString(document.documentElement.lang))
      .replace('%2', MOST_SHOWN);
  };

  const find = () => {
    const words = search.value.toLowerCase().split(/\s+/).filter(Boolean);
    const searching = words.length > 0;
    results.hidden = !searching;
    tree.hidden = searching;
    if (!searching) {
      results.replaceChildren();
      found.textContent = '';
      return;
    }
    texts ??= makeTexts();
    const matches = [];
    texts.forEach((text, at) => {
      if (text && words.every(word => text.includes(word))) matches.push(at);
    });
    show(matches);
    tell(matches.length);
  };

  const foldAll = open => {
    if (open) fillAll();
    for (const details of tree.querySelectorAll('details')) details.open = open;
  };

  let soon = 0;
  search.addEventListener('input', () => {
    clearTimeout(soon);
    soon = setTimeout(find, 120);
  });
  search.addEventListener('keydown', event => {
    if (event.key !== 'Escape' || !search.value) return;
    search.value = '';
    find();
  });
  document.getElementById('unfold').addEventListener('click', () => foldAll(true));
  document.getElementById('fold').addEventListener('click', () => foldAll(false));
  finder.hidden = false;
})();
