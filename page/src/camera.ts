/*
 * Where this camera answers. The page knows no other address: on a camera whose live picture is served elsewhere, its
 * address goes here.
 */

/** The folder that the page was opened from, without the login that an address may carry: none may be fetched with one. */
const here = new URL('.', location.origin + location.pathname);

/** The application's web service; `?action=` follows. */
export const webService = new URL('webservices.cgi', here).href;

/** Something small behind the same login that the web server answers by itself, whatever the application does. */
export const loginCheck = new URL('icon.svg', here).href;

/** The live picture as a stream of JPEGs, multipart/x-mixed-replace. resolution: "1280x720", or "" for the camera's choice. */
export function liveStream(resolution: string): string {
  return live('/live/video.mjpg', resolution);
}

/** The live picture, once. */
export function liveImage(resolution: string): string {
  return live('/live/image.jpg', resolution);
}

function live(path: string, resolution: string): string {
  const address = new URL(path, here);
  if (resolution) address.searchParams.set('resolution', resolution);
  address.searchParams.set('overlays', '1');
  return address.href;
}
