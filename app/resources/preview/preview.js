// The pages of the document as the printer will see them, one frame per page. A changed page
// is loaded into a hidden frame and swapped in once its fonts are ready, so typing never
// makes the preview flash. This runs in the program's own script world: the shell and the
// pages have scripts switched off and run none of their own.
var generation = 0;

function pageSlot(index, width, height) {
  var container = document.getElementById('pages');
  var slot = container.children[index];
  if (!slot) {
    slot = document.createElement('div');
    slot.className = 'slot';
    slot.generation = 0;
    slot.html = null;
    container.appendChild(slot);
  }
  // The page's own unit: its style sheet makes one rem one centimetre of paper.
  slot.style.width = width + 'cm';
  slot.style.height = height + 'cm';
  return slot;
}

function setPages(pages, width, height, surround, paper, renderId) {
  document.documentElement.style.setProperty('--surround', surround);
  document.documentElement.style.setProperty('--paper', paper);
  var container = document.getElementById('pages');
  var waiting = 0;
  var reported = false;
  function done() {
    if (waiting === 0 && !reported) {
      reported = true;
      console.log('rendered:' + renderId);
      reportPage();
    }
  }
  pages.forEach(function(html, index) {
    var slot = pageSlot(index, width, height);
    if (slot.html === html)
      return;
    slot.html = html;
    var mine = ++slot.generation;
    var fresh = document.createElement('iframe');
    fresh.className = 'loading';
    // The page's own content never runs script; the frame stays readable from here.
    fresh.setAttribute('sandbox', 'allow-same-origin');
    fresh.setAttribute('scrolling', 'no');
    waiting++;
    fresh.onload = function() {
      var settle = function() {
        if (slot.generation !== mine) {
          fresh.remove();
        } else {
          Array.prototype.slice.call(slot.querySelectorAll('iframe')).forEach(function(frame) {
            if (frame !== fresh) frame.remove();
          });
          fresh.className = '';
        }
        waiting--;
        done();
      };
      var doc = fresh.contentDocument;
      if (doc && doc.fonts) doc.fonts.ready.then(function() { requestAnimationFrame(settle); });
      else settle();
    };
    slot.appendChild(fresh);
    fresh.srcdoc = html;
  });
  while (container.children.length > pages.length)
    container.removeChild(container.lastChild);
  done();
}

function currentPage() {
  var slots = document.getElementById('pages').children;
  var middle = window.scrollY + window.innerHeight / 3;
  for (var i = 0; i < slots.length; i++) {
    var slot = slots[i];
    if (slot.offsetTop + slot.offsetHeight >= middle) return i;
  }
  return Math.max(0, slots.length - 1);
}

function showPage(index) {
  var slot = document.getElementById('pages').children[index];
  if (slot) window.scrollTo({ top: slot.offsetTop - 16, behavior: 'smooth' });
}

var lastReported = -1;
function reportPage() {
  var page = currentPage();
  var count = document.getElementById('pages').children.length;
  if (page !== lastReported || reportPage.count !== count) {
    lastReported = page;
    reportPage.count = count;
    console.log('page:' + page + '/' + count);
  }
}
window.addEventListener('scroll', reportPage, { passive: true });
window.addEventListener('resize', reportPage);
console.log('ready');
