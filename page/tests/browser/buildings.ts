/** How many buildings the tests have between them, each with a worker of its own. Much of their time is waiting. */
export const kBuildings = 3;
