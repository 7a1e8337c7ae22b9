'use strict';

// Asks the camera every other second and shows what it says, as text and never as markup.

const kInterval = 2000;
const kFollowers = 10;

async function ask(action) {
  // An address with the login in it may be opened, but not fetched from: the origin has none.
  const address = new URL('webservices.cgi?action=' + action, location.origin + location.pathname);
  const response = await fetch(address, {cache: 'no-store'});
  if (!response.ok) throw new Error(response.status === 401 ? 'Signed out' : 'The camera answers with ' + response.status);
  return response.text();
}

// The documents have neither nesting nor escaping: a value ends where its own closing tag begins.
function valueOf(document, tag) {
  const start = document.indexOf('<' + tag + '>');
  const end = document.indexOf('</' + tag + '>', start);
  return start < 0 || end < 0 ? '' : document.slice(start + tag.length + 2, end);
}

function show(id, text) {
  document.getElementById(id).textContent = text;
}

function row(cells) {
  const line = document.createElement('tr');
  for (const cell of cells) line.appendChild(document.createElement('td')).textContent = cell;
  return line;
}

function showPanel(panel) {
  const rows = [];
  for (let i = 0; i <= kFollowers; ++i) {
    if (i > 0 && valueOf(panel, 'ActiveCam_' + i) !== '1') continue;
    const name = valueOf(panel, 'NameCam_' + i) || (i === 0 ? 'This camera' : 'Follower ' + i);
    rows.push(row([name, valueOf(panel, 'StatusCam_' + i), valueOf(panel, 'AOICam_' + i)]));
  }
  document.getElementById('cameras').replaceChildren(...rows);
  show('state', valueOf(panel, 'StatusCam_0'));
  show('total', valueOf(panel, 'TotalOcc'));
}

async function refresh() {
  try {
    showPanel(await ask('get_data_panel_info'));
    show('occupancy', await ask('get_occupancy_count'));
    show('crowd', await ask('get_total_crowd'));
  } catch (error) {
    show('state', error instanceof TypeError ? 'The camera does not answer' : error.message);
  }
  setTimeout(refresh, kInterval);
}

refresh();
