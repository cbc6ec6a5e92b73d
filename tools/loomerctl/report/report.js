// Nothing in here takes text for markup, and without it the page shows the same.
'use strict';
(() => {
  const MOST_SHOWN = 200;
  const finder = document.querySelector('.finder');
  if (!finder) return;
  const tree = document.querySelector('.tree');
  const search = document.getElementById('search');
  const found = document.getElementById('found');
  const results = document.getElementById('results');
  let bookmarks = null;

  // Made at the first search: a page of a hundred thousand bookmarks opens without it.
  const index = () => Array.from(tree.querySelectorAll('li'), item => {
    const link = item.querySelector(':scope > a');
    const isFolder = !link && item.firstElementChild && item.firstElementChild.tagName === 'DETAILS';
    if (isFolder) return null;
    return {item, text: (item.textContent + '\n' + (link ? link.getAttribute('href') : '')).toLowerCase()};
  }).filter(Boolean);

  const pathOf = item => {
    const names = [];
    for (let at = item.parentElement.closest('details'); at; at = at.parentElement.closest('details')) {
      names.unshift(at.querySelector('summary > b').textContent);
    }
    return names.join(' › ');
  };

  const show = matches => {
    results.replaceChildren(...matches.slice(0, MOST_SHOWN).map(({item}) => {
      const copy = item.cloneNode(true);
      const path = document.createElement('small');
      path.textContent = pathOf(item);
      copy.append(' ', path);
      return copy;
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
    bookmarks ??= index();
    const matches = bookmarks.filter(({text}) => words.every(word => text.includes(word)));
    show(matches);
    tell(matches.length);
  };

  const foldAll = open => {
    for (const folder of tree.querySelectorAll('details')) folder.open = open;
  };

  let waiting = 0;
  search.addEventListener('input', () => {
    clearTimeout(waiting);
    waiting = setTimeout(find, 120);
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
